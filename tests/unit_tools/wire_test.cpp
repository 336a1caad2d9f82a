// The client library's bytes: request texts, reply records, and the bus's codes as errors.
#include "wire.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "kivo/os_msg.h"

using namespace ominspect::client;

namespace {

// A result record by its offsets.
std::vector<unsigned char> Record(const char* name, const char* status, const char* text) {
    std::vector<unsigned char> record(192);
    std::memcpy(record.data(), name, std::strlen(name));
    std::memcpy(record.data() + 32, status, std::strlen(status));
    std::memcpy(record.data() + 64, text, std::strlen(text));
    return record;
}

std::string Encoded(std::string_view item, std::string_view cmd) {
    const auto request = wire::EncodeRequest(item, cmd);
    return request ? *request : "error: " + request.Failure().text;
}

TEST(RequestText, HoldsNameAndCmd) {
    EXPECT_EQ(Encoded("conf_sip_ft", "deep"), R"({"name":"conf_sip_ft","cmd":"deep"})");
}

TEST(RequestText, EscapesWhatWouldEndAString) {
    EXPECT_EQ(Encoded("a\"b\\c", "\n\x01\xC3\xA4"), "{\"name\":\"a\\\"b\\\\c\",\"cmd\":\"\\n\\u0001\xC3\xA4\"}");
}

TEST(RequestText, TakesTheLongestNameAndCmd) {
    EXPECT_EQ(Encoded(std::string(31, 'n'), std::string(127, 'c')).size(), 178U);
}

TEST(RequestText, RefusesWhatDoesNotFit) {
    EXPECT_EQ(Encoded(std::string(32, 'n'), ""), "error: the item name is longer than 31 bytes");
    EXPECT_EQ(Encoded("a", std::string(128, 'c')), "error: the cmd is longer than 127 bytes");
    EXPECT_EQ(Encoded("", ""), "error: the item name is empty");
    EXPECT_EQ(Encoded(std::string("a\0b", 3), ""), "error: the item name holds a NUL byte");
    EXPECT_EQ(Encoded("a", std::string("\0", 1)), "error: the cmd holds a NUL byte");
    EXPECT_EQ(wire::EncodeRequest("", "").Failure().code, ErrorCode::kInvalidArgument);
}

TEST(RunReplyRecord, GivesTheItemsResult) {
    const auto reply = wire::DecodeRunReply(Record("load", "warn", "LOAD WARNING"), "load");
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->outcome, RunOutcome::kFinal);
    EXPECT_EQ(reply->result.name, "load");
    EXPECT_EQ(reply->result.status, "warn");
    EXPECT_EQ(reply->result.text, "LOAD WARNING");
}

TEST(RunReplyRecord, WithoutANameMeansThatTheItemRuns) {
    const auto reply = wire::DecodeRunReply(Record("", "fail", "no support"), "disk");
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->outcome, RunOutcome::kPending);
    EXPECT_EQ(reply->result.name, "disk");
    EXPECT_EQ(reply->result.status, "running");
}

TEST(RunReplyRecord, WithNoSupportMeansAnUnknownItem) {
    const auto reply = wire::DecodeRunReply(Record("nosuch", "fail", "no support"), "nosuch");
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->outcome, RunOutcome::kUnknownItem);
    EXPECT_EQ(reply->result.status, "fail");
}

TEST(RunReplyRecord, OfAnotherItemIsMalformed) {
    EXPECT_EQ(wire::DecodeRunReply(Record("a", "success", ""), "b").Failure().code, ErrorCode::kMalformedReply);
    EXPECT_EQ(wire::DecodeRunReply(Record("", "success", ""), "b").Failure().code, ErrorCode::kMalformedReply);
}

TEST(RunReplyRecord, EmptyIsARefusal) {
    EXPECT_EQ(wire::DecodeRunReply({}, "a").Failure().code, ErrorCode::kRefused);
}

TEST(ResultRecord, OfAnotherSizeIsMalformed) {
    auto record = Record("a", "success", "");
    record.resize(191);
    EXPECT_EQ(wire::DecodeResult(record).Failure().code, ErrorCode::kMalformedReply);
    record.resize(193);
    EXPECT_EQ(wire::DecodeResult(record).Failure().code, ErrorCode::kMalformedReply);
}

TEST(ResultRecord, WithATextThatDoesNotEndIsMalformed) {
    const std::vector<std::pair<std::size_t, std::size_t>> fields{{0, 32}, {32, 32}, {64, 128}};
    for (const auto& [offset, size] : fields) {
        auto record = Record("a", "success", "t");
        std::memset(record.data() + offset, 'x', size);
        EXPECT_EQ(wire::DecodeResult(record).Failure().code, ErrorCode::kMalformedReply) << offset;
        record[offset + size - 1] = 0;
        EXPECT_TRUE(wire::DecodeResult(record)) << offset;
    }
}

TEST(StateReply, HasThreeAnswers) {
    const auto decode = [](unsigned char value) {
        return wire::DecodeStateReply(std::vector<unsigned char>{value, 0, 0, 0});
    };
    EXPECT_EQ(*decode(0), ItemState::kNotIdle);
    EXPECT_EQ(*decode(1), ItemState::kIdleOrUnknown);
    EXPECT_EQ(decode(2).Failure().code, ErrorCode::kRefused);
    EXPECT_EQ(decode(3).Failure().code, ErrorCode::kMalformedReply);
}

TEST(StateReply, OfAnotherSizeIsMalformed) {
    EXPECT_EQ(wire::DecodeStateReply({}).Failure().code, ErrorCode::kMalformedReply);
    EXPECT_EQ(wire::DecodeStateReply(std::vector<unsigned char>(5)).Failure().code, ErrorCode::kMalformedReply);
}

TEST(BusyEvent, IsZeroForBusyAndOneForIdle) {
    EXPECT_TRUE(*wire::DecodeBusy(std::vector<unsigned char>{0, 0, 0, 0}));
    EXPECT_FALSE(*wire::DecodeBusy(std::vector<unsigned char>{1, 0, 0, 0}));
    EXPECT_FALSE(wire::DecodeBusy(std::vector<unsigned char>{2, 0, 0, 0}));
    EXPECT_FALSE(wire::DecodeBusy(std::vector<unsigned char>{0}));
}

TEST(BusCode, BecomesAnErrorWithTheBussOwnWords) {
    EXPECT_EQ(wire::FromBus(0x80020002).code, ErrorCode::kInvalidArgument);
    EXPECT_EQ(wire::FromBus(0x80020004).code, ErrorCode::kBusUnreachable);
    EXPECT_EQ(wire::FromBus(0x80020005).code, ErrorCode::kAlreadyOpen);
    EXPECT_EQ(wire::FromBus(0x80020006).code, ErrorCode::kAlreadyOpen);
    EXPECT_EQ(wire::FromBus(0x80020007).code, ErrorCode::kBusUnreachable);
    EXPECT_EQ(wire::FromBus(0x80020008).code, ErrorCode::kServerAbsent);
    EXPECT_EQ(wire::FromBus(0x80020009).code, ErrorCode::kServerAbsent);
    EXPECT_EQ(wire::FromBus(0x8002000a).code, ErrorCode::kServerAbsent);
    EXPECT_EQ(wire::FromBus(0x8002000b).code, ErrorCode::kTimeLimit);
    EXPECT_EQ(wire::FromBus(0x8002000c).code, ErrorCode::kRefused);
    EXPECT_EQ(wire::FromBus(0x8002000e).code, ErrorCode::kDenied);
    EXPECT_EQ(wire::FromBus(0x80020010).code, ErrorCode::kInternal);
    EXPECT_EQ(wire::FromBus(0x80020008).text, OsMsgResultText(0x80020008));
}

TEST(ErrorWords, AreStable) {
    EXPECT_STREQ(ErrorWord(ErrorCode::kInvalidArgument), "invalid-argument");
    EXPECT_STREQ(ErrorWord(ErrorCode::kAlreadyOpen), "already-open");
    EXPECT_STREQ(ErrorWord(ErrorCode::kBusUnreachable), "bus-unreachable");
    EXPECT_STREQ(ErrorWord(ErrorCode::kServerAbsent), "server-absent");
    EXPECT_STREQ(ErrorWord(ErrorCode::kTimeLimit), "time-limit");
    EXPECT_STREQ(ErrorWord(ErrorCode::kRefused), "refused");
    EXPECT_STREQ(ErrorWord(ErrorCode::kDenied), "denied");
    EXPECT_STREQ(ErrorWord(ErrorCode::kMalformedReply), "malformed-reply");
    EXPECT_STREQ(ErrorWord(ErrorCode::kInternal), "internal");
}

}  // namespace
