// The client library's bytes: request texts and reply records.
#include "wire.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

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
    const auto request = wire::EncodeRequest({std::string(item), std::string(cmd)});
    return request ? *request : "error: " + request.Failure().text;
}

TEST(WireRequestText, HoldsNameAndCmd) {
    EXPECT_EQ(Encoded("conf_sip_ft", "deep"), R"({"name":"conf_sip_ft","cmd":"deep"})");
}

TEST(WireRequestText, EscapesWhatWouldEndAString) {
    EXPECT_EQ(Encoded("a\"b\\c", "\n\x01\xC3\xA4"), "{\"name\":\"a\\\"b\\\\c\",\"cmd\":\"\\n\\u0001\xC3\xA4\"}");
}

TEST(WireRequestText, TakesTheLongestNameAndCmd) {
    EXPECT_EQ(Encoded(std::string(31, 'n'), std::string(127, 'c')).size(), 178U);
}

TEST(WireRequestText, RefusesWhatDoesNotFit) {
    EXPECT_EQ(Encoded(std::string(32, 'n'), ""), "error: the item name is longer than 31 bytes");
    EXPECT_EQ(Encoded("a", std::string(128, 'c')), "error: the cmd is longer than 127 bytes");
    EXPECT_EQ(Encoded("", ""), "error: the item name is empty");
    EXPECT_EQ(Encoded(std::string("a\0b", 3), ""), "error: the item name holds a NUL byte");
    EXPECT_EQ(Encoded("a", std::string("\0", 1)), "error: the cmd holds a NUL byte");
    EXPECT_EQ(wire::EncodeRequest({"", ""}).Failure().code, ErrorCode::kInvalidArgument);
}

// An event with the values of an item by its offsets.
std::vector<unsigned char> PerfEvent(const char* item, std::uint32_t count, std::size_t values) {
    std::vector<unsigned char> event(40 + 168 * values);
    std::memcpy(event.data(), item, std::strlen(item));
    std::memcpy(event.data() + 32, &count, 4);
    const double numbers[] = {-2.5, 0, std::numeric_limits<double>::quiet_NaN()};
    for (std::size_t i = 0; i < values; ++i) {
        unsigned char* value = event.data() + 40 + 168 * i;
        std::memcpy(value, "used", 4);
        std::memcpy(value + 64, "MB", 2);
        std::memcpy(value + 80, "@5:10", 5);
        std::memcpy(value + 112, "~:20", 4);
        std::memcpy(value + 144, numbers, sizeof numbers);
    }
    return event;
}

std::string PerfMistake(const std::vector<unsigned char>& event) {
    const auto perfData = wire::DecodePerfData(event);
    return perfData ? "taken" : perfData.Failure().text;
}

TEST(WirePerfDataRecord, GivesTheValues) {
    const auto perfData = wire::DecodePerfData(PerfEvent("disk", 2, 2));
    ASSERT_TRUE(perfData);
    EXPECT_EQ(perfData->item, "disk");
    ASSERT_EQ(perfData->values.size(), 2U);
    const PerfValue& value = perfData->values[1];
    EXPECT_EQ(value.label, "used");
    EXPECT_EQ(value.unit, "MB");
    EXPECT_EQ(value.warn, "@5:10");
    EXPECT_EQ(value.crit, "~:20");
    EXPECT_EQ(value.value, -2.5);
    EXPECT_EQ(value.min, 0);
    EXPECT_EQ(value.max, std::nullopt);
    EXPECT_TRUE(wire::DecodePerfData(PerfEvent("disk", 0, 0))->values.empty());
    EXPECT_EQ(wire::DecodePerfData(PerfEvent("disk", 64, 64))->values.size(), 64U);
}

TEST(WirePerfDataRecord, RefusesWhatIsNone) {
    EXPECT_EQ(PerfMistake({}), "values of 0 bytes");
    EXPECT_EQ(PerfMistake(std::vector<unsigned char>(39)), "values of 39 bytes");
    EXPECT_EQ(PerfMistake(PerfEvent("", 1, 1)), "values without the item's name");
    EXPECT_EQ(PerfMistake(PerfEvent("1234567890123456789012345678901234", 1, 1)), "values without the item's name");
    EXPECT_EQ(PerfMistake(PerfEvent("disk", 2, 1)), "168 bytes of 2 values");
    EXPECT_EQ(PerfMistake(PerfEvent("disk", 0, 1)), "168 bytes of 0 values");
    EXPECT_EQ(PerfMistake(PerfEvent("disk", 65, 65)), "10920 bytes of 65 values");
    EXPECT_EQ(PerfMistake(PerfEvent("disk", 0xffffffff, 1)), "168 bytes of 4294967295 values");
    auto longer = PerfEvent("disk", 1, 1);
    longer.push_back(0);
    EXPECT_EQ(PerfMistake(longer), "169 bytes of 1 values");
    for (const std::size_t field : {0U, 64U, 80U, 112U}) {
        auto endless = PerfEvent("disk", 1, 1);
        std::fill(endless.begin() + 40 + static_cast<std::ptrdiff_t>(field), endless.begin() + 40 + 144, 'x');
        EXPECT_EQ(PerfMistake(endless), "a value that is none") << field;
    }
    auto nameless = PerfEvent("disk", 1, 1);
    nameless[40] = 0;
    EXPECT_EQ(PerfMistake(nameless), "a value that is none");
    auto infinite = PerfEvent("disk", 1, 1);
    const double number = std::numeric_limits<double>::infinity();
    std::memcpy(infinite.data() + 40 + 144, &number, sizeof number);
    EXPECT_EQ(PerfMistake(infinite), "a value that is none");
}

TEST(WireRunReplyRecord, GivesTheItemsResult) {
    const auto reply = wire::DecodeRunReply(Record("load", "warn", "LOAD WARNING"), "load");
    ASSERT_TRUE(reply);
    EXPECT_FALSE(reply->isPending);
    EXPECT_EQ(reply->result.name, "load");
    EXPECT_EQ(reply->result.status, "warn");
    EXPECT_EQ(reply->result.text, "LOAD WARNING");
}

TEST(WireRunReplyRecord, WithoutANameMeansThatTheItemRuns) {
    const auto reply = wire::DecodeRunReply(Record("", "fail", "no support"), "disk");
    ASSERT_TRUE(reply);
    EXPECT_TRUE(reply->isPending);
    EXPECT_EQ(reply->result.name, "disk");
    EXPECT_EQ(reply->result.status, "running");
}

TEST(WireRunReplyRecord, WithNoSupportMeansAnUnknownItem) {
    const auto reply = wire::DecodeRunReply(Record("nosuch", "fail", "no support"), "nosuch");
    ASSERT_TRUE(reply);
    EXPECT_FALSE(reply->isPending);
    EXPECT_TRUE(IsUnknownItem(reply->result));
    EXPECT_FALSE(IsUnknownItem({"nosuch", "warn", "no support"}));
    EXPECT_FALSE(IsUnknownItem({"nosuch", "fail", "run err"}));
}

TEST(WireRunReplyRecord, OfAnotherItemIsMalformed) {
    EXPECT_EQ(wire::DecodeRunReply(Record("a", "success", ""), "b").Failure().code, ErrorCode::kMalformedReply);
    EXPECT_EQ(wire::DecodeRunReply(Record("", "success", ""), "b").Failure().code, ErrorCode::kMalformedReply);
}

TEST(WireRunReplyRecord, EmptyIsARefusal) {
    EXPECT_EQ(wire::DecodeRunReply({}, "a").Failure().code, ErrorCode::kRefused);
}

TEST(WireResultRecord, OfAnotherSizeIsMalformed) {
    auto record = Record("a", "success", "");
    record.resize(191);
    EXPECT_EQ(wire::DecodeResult(record).Failure().code, ErrorCode::kMalformedReply);
    record.resize(193);
    EXPECT_EQ(wire::DecodeResult(record).Failure().code, ErrorCode::kMalformedReply);
}

TEST(WireResultRecord, WithATextThatDoesNotEndIsMalformed) {
    const std::vector<std::pair<std::size_t, std::size_t>> fields{{0, 32}, {32, 32}, {64, 128}};
    for (const auto& [offset, size] : fields) {
        auto record = Record("a", "success", "t");
        std::memset(record.data() + offset, 'x', size);
        EXPECT_EQ(wire::DecodeResult(record).Failure().code, ErrorCode::kMalformedReply) << offset;
        record[offset + size - 1] = 0;
        EXPECT_TRUE(wire::DecodeResult(record)) << offset;
    }
}

TEST(WireGroupText, HoldsOneTextPerRequestAndAnEmptyOne) {
    const std::vector<Request> requests{{"a", "go"}, {"b", ""}};
    const auto payload = wire::EncodeGroup(requests);
    ASSERT_TRUE(payload);
    const char expected[] = "{\"name\":\"a\",\"cmd\":\"go\"}\0{\"name\":\"b\",\"cmd\":\"\"}\0";
    EXPECT_EQ(*payload, std::string(expected, sizeof expected));
}

TEST(WireGroupText, RefusesWhatIsNoGroup) {
    EXPECT_EQ(wire::EncodeGroup({}).Failure().text, "the group is empty");
    EXPECT_EQ(wire::EncodeGroup(std::vector<Request>(33, Request{"a", ""})).Failure().text,
              "the group has more than 32 items");
    EXPECT_TRUE(wire::EncodeGroup(std::vector<Request>(32, Request{"a", ""})));
    EXPECT_EQ(wire::EncodeGroup(std::vector<Request>{{"a", ""}, {"", ""}}).Failure().code, ErrorCode::kInvalidArgument);
}

std::vector<unsigned char> Number(std::uint32_t number) {
    std::vector<unsigned char> bytes(4);
    std::memcpy(bytes.data(), &number, 4);
    return bytes;
}

TEST(WireGroupReply, IsATaskIdOrARefusal) {
    EXPECT_EQ(*wire::DecodeGroupReply(Number(17)), 17U);
    EXPECT_EQ(*wire::DecodeGroupReply(Number(0xFFFFFFFF)), 0xFFFFFFFF);
    EXPECT_EQ(wire::DecodeGroupReply(Number(16)).Failure().code, ErrorCode::kGroupBusy);
    EXPECT_EQ(wire::DecodeGroupReply(Number(14)).Failure().code, ErrorCode::kRefused);
    EXPECT_EQ(wire::DecodeGroupReply({}).Failure().code, ErrorCode::kRefused);
    EXPECT_EQ(wire::DecodeGroupReply(Number(15)).Failure().code, ErrorCode::kMalformedReply);
    EXPECT_EQ(wire::DecodeGroupReply(Number(0)).Failure().code, ErrorCode::kMalformedReply);
    EXPECT_EQ(wire::DecodeGroupReply(std::vector<unsigned char>(8)).Failure().code, ErrorCode::kMalformedReply);
}

TEST(WireStopReply, IsZeroForAKnownTask) {
    EXPECT_TRUE(*wire::DecodeStopReply(Number(0)));
    EXPECT_FALSE(*wire::DecodeStopReply(Number(1)));
    EXPECT_EQ(wire::DecodeStopReply(Number(2)).Failure().code, ErrorCode::kMalformedReply);
    EXPECT_EQ(wire::DecodeStopReply({}).Failure().code, ErrorCode::kMalformedReply);
}

// A group record by its offsets.
class GroupBytes {
public:
    explicit GroupBytes(std::uint32_t taskId, std::uint32_t count) : bytes_(6688) {
        Put(0, taskId);
        Put(24, count);
    }
    template <typename T>
    GroupBytes& Put(std::size_t offset, T value) {
        std::memcpy(bytes_.data() + offset, &value, sizeof value);
        return *this;
    }
    GroupBytes& Item(std::size_t index, const char* name, const char* status, const char* text) {
        const auto record = Record(name, status, text);
        std::memcpy(bytes_.data() + 32 + index * 208, record.data(), record.size());
        return *this;
    }
    std::vector<unsigned char>& Bytes() { return bytes_; }

private:
    std::vector<unsigned char> bytes_;
};

TEST(WireGroupRecordBytes, GiveTaskItemsAndTimes) {
    GroupBytes bytes(4711, 2);
    bytes.Item(0, "a", "success", "fine").Put<std::uint64_t>(32 + 192, 1000).Put<std::uint64_t>(32 + 200, 3500);
    const auto record = wire::DecodeGroupRecord(bytes.Bytes());
    ASSERT_TRUE(record);
    EXPECT_EQ(record->taskId, 4711U);
    ASSERT_EQ(record->items.size(), 2U);
    EXPECT_EQ(record->items[0].result.name, "a");
    EXPECT_EQ(record->items[0].result.status, "success");
    EXPECT_EQ(record->items[0].result.text, "fine");
    EXPECT_EQ(*record->items[0].end - *record->items[0].start, std::chrono::milliseconds(2500));
    EXPECT_EQ(record->items[0].start->time_since_epoch(), std::chrono::milliseconds(1000));
    EXPECT_EQ(record->items[1].result.name, "");
    EXPECT_FALSE(record->items[1].start);
    EXPECT_FALSE(record->items[1].end);
}

TEST(WireGroupRecordBytes, ThatAreNoRecordAreMalformed) {
    EXPECT_EQ(wire::DecodeGroupRecord(std::vector<unsigned char>(6687)).Failure().code, ErrorCode::kMalformedReply);
    EXPECT_TRUE(wire::DecodeGroupRecord(GroupBytes(17, 32).Bytes()));
    EXPECT_EQ(wire::DecodeGroupRecord(GroupBytes(17, 33).Bytes()).Failure().code, ErrorCode::kMalformedReply);
    GroupBytes absurd(17, 1);
    absurd.Put<std::uint64_t>(32 + 200, 0xFFFFFFFFFFFFFFFF);
    EXPECT_EQ(wire::DecodeGroupRecord(absurd.Bytes()).Failure().code, ErrorCode::kMalformedReply);
}

TEST(WireGroupRecordBytes, WithATextThatDoesNotEndStillGiveTheOtherItems) {
    GroupBytes bytes(17, 2);
    bytes.Item(0, "a", "", "").Item(1, "b", "success", "fine");
    std::memset(bytes.Bytes().data() + 32 + 32, 'x', 32);
    const auto record = wire::DecodeGroupRecord(bytes.Bytes());
    ASSERT_TRUE(record);
    EXPECT_TRUE(record->items[0].isMalformed);
    EXPECT_EQ(record->items[0].result.status, std::string(32, 'x'));
    EXPECT_FALSE(record->items[1].isMalformed);
    EXPECT_EQ(record->items[1].result.text, "fine");
}

TEST(WireMalformedRecord, SaysWhomItConcerns) {
    EXPECT_EQ(wire::ItemOf(Record("load", "success", "")), "load");
    auto unended = Record("load", "success", "");
    std::memset(unended.data() + 64, 'x', 128);
    EXPECT_EQ(wire::ItemOf(unended), "load");
    std::memset(unended.data(), 'x', 32);
    EXPECT_EQ(wire::ItemOf(unended), std::nullopt);
    EXPECT_EQ(wire::ItemOf(std::vector<unsigned char>(31)), std::nullopt);
    EXPECT_EQ(wire::TaskOf(GroupBytes(4711, 99).Bytes()), 4711U);
    EXPECT_EQ(wire::TaskOf(Number(4711)), 4711U);
    EXPECT_EQ(wire::TaskOf(std::vector<unsigned char>(3)), std::nullopt);
}

TEST(WireItemListBytes, GiveNameLevelAndMode) {
    std::vector<unsigned char> bytes(12296);
    std::memcpy(bytes.data(), "conf_sip_ft", 11);
    std::memcpy(bytes.data() + 32, "error", 5);
    bytes[40] = 1;
    std::memcpy(bytes.data() + 48, "conf_ldapserver_ft", 18);
    std::memcpy(bytes.data() + 48 + 32, "warn", 4);
    bytes[48 + 40] = 2;  // another bit than the synchronous one
    bytes[12288] = 2;
    const auto items = wire::DecodeList(bytes);
    ASSERT_TRUE(items);
    ASSERT_EQ(items->size(), 2U);
    EXPECT_EQ((*items)[0].name, "conf_sip_ft");
    EXPECT_EQ((*items)[0].level, "error");
    EXPECT_TRUE((*items)[0].isSync);
    EXPECT_EQ((*items)[1].name, "conf_ldapserver_ft");
    EXPECT_EQ((*items)[1].level, "warn");
    EXPECT_FALSE((*items)[1].isSync);
}

TEST(WireItemListBytes, ThatAreNoListAreMalformed) {
    EXPECT_EQ(wire::DecodeList({}).Failure().code, ErrorCode::kMalformedReply);
    EXPECT_EQ(wire::DecodeList(std::vector<unsigned char>(12295)).Failure().code, ErrorCode::kMalformedReply);
    std::vector<unsigned char> bytes(12296);
    bytes[12289] = 1;  // 256
    EXPECT_EQ(wire::DecodeList(bytes)->size(), 256U);
    bytes[12288] = 1;  // 257
    EXPECT_EQ(wire::DecodeList(bytes).Failure().code, ErrorCode::kMalformedReply);
    bytes.assign(12296, 0);
    bytes[12288] = 1;
    std::memset(bytes.data() + 32, 'x', 8);
    EXPECT_EQ(wire::DecodeList(bytes).Failure().code, ErrorCode::kMalformedReply);
}

TEST(WireItemCount, IsFourBytes) {
    EXPECT_EQ(*wire::DecodeCount(Number(300)), 300U);
    EXPECT_EQ(wire::DecodeCount({}).Failure().code, ErrorCode::kMalformedReply);
}

TEST(WireStateReply, HasThreeAnswers) {
    const auto decode = [](unsigned char value) {
        return wire::DecodeStateReply(std::vector<unsigned char>{value, 0, 0, 0});
    };
    EXPECT_EQ(*decode(0), ItemState::kNotIdle);
    EXPECT_EQ(*decode(1), ItemState::kIdleOrUnknown);
    EXPECT_EQ(decode(2).Failure().code, ErrorCode::kRefused);
    EXPECT_EQ(decode(3).Failure().code, ErrorCode::kMalformedReply);
}

TEST(WireStateReply, OfAnotherSizeIsMalformed) {
    EXPECT_EQ(wire::DecodeStateReply({}).Failure().code, ErrorCode::kMalformedReply);
    EXPECT_EQ(wire::DecodeStateReply(std::vector<unsigned char>(5)).Failure().code, ErrorCode::kMalformedReply);
}

TEST(WireBusyEvent, IsZeroForBusyAndOneForIdle) {
    EXPECT_TRUE(*wire::DecodeBusy(std::vector<unsigned char>{0, 0, 0, 0}));
    EXPECT_FALSE(*wire::DecodeBusy(std::vector<unsigned char>{1, 0, 0, 0}));
    EXPECT_FALSE(wire::DecodeBusy(std::vector<unsigned char>{2, 0, 0, 0}));
    EXPECT_FALSE(wire::DecodeBusy(std::vector<unsigned char>{0}));
}

TEST(WireKindOfRequest, IsACommandForStopAndDone) {
    EXPECT_EQ(KindOf({"x", "stop"}), RequestKind::kCommand);
    EXPECT_EQ(KindOf({"x", "done"}), RequestKind::kCommand);
    EXPECT_EQ(KindOf({"x", ""}), RequestKind::kRun);
    EXPECT_EQ(KindOf({"stop", "stop now"}), RequestKind::kRun);
}

TEST(WireRunEvent, SaysThatARunBeganInTheServersOwnWords) {
    EXPECT_TRUE(wire::IsBeginning({"x", "running", "begin"}));
    EXPECT_FALSE(wire::IsBeginning({"x", "running", "half of it"}));
    EXPECT_FALSE(wire::IsBeginning({"x", "success", "begin"}));
}

TEST(WireUnknownItem, IsNamed) {
    EXPECT_EQ(UnknownItemText("nosuch"), "item unknown: no process has registered \"nosuch\" with the server");
}

TEST(WireErrorWords, AreStable) {
    EXPECT_STREQ(ErrorWord(ErrorCode::kInvalidArgument), "invalid-argument");
    EXPECT_STREQ(ErrorWord(ErrorCode::kAlreadyOpen), "already-open");
    EXPECT_STREQ(ErrorWord(ErrorCode::kBusUnreachable), "bus-unreachable");
    EXPECT_STREQ(ErrorWord(ErrorCode::kServerAbsent), "server-absent");
    EXPECT_STREQ(ErrorWord(ErrorCode::kTimeLimit), "time-limit");
    EXPECT_STREQ(ErrorWord(ErrorCode::kRefused), "refused");
    EXPECT_STREQ(ErrorWord(ErrorCode::kGroupBusy), "group-busy");
    EXPECT_STREQ(ErrorWord(ErrorCode::kCancelled), "cancelled");
    EXPECT_STREQ(ErrorWord(ErrorCode::kDenied), "denied");
    EXPECT_STREQ(ErrorWord(ErrorCode::kMalformedReply), "malformed-reply");
    EXPECT_STREQ(ErrorWord(ErrorCode::kInternal), "internal");
}

}  // namespace
