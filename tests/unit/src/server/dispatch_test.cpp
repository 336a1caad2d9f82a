// Message dispatch: receive line, search of the table, replies.
#include "server/dispatch.h"

#include <string>
#include <vector>

#include "result/result_mgr.h"
#include "support/alloc_failure.h"
#include "support/envelope.h"
#include "support/journal_text.h"
#include "support/platform_test.h"

using support::AllocFailure;
using support::Envelope;
using support::Lines;

namespace {

class InspectMsgProcessTest : public support::PlatformTest {
protected:
    static std::string Received(uint32_t id) {
        return "3 inspect_server 18: inspect server recv msg id " + std::to_string(id) + " from [client:cli_task]";
    }
};

std::vector<std::string> g_called;

void First(TagMsgBlock* /*msg*/, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength) {
    g_called.emplace_back("first");
    reply = std::make_unique<unsigned char[]>(3);
    replyLength = 3;
}

void Second(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& /*reply*/, unsigned int& /*replyLength*/) {
    g_called.emplace_back("second of " + std::to_string(msg->msgId));
}

// What CallHandler called for an id, in order.
std::vector<std::string> Called(const std::vector<DispatchRow>& rows, uint32_t msgId) {
    g_called.clear();
    std::unique_ptr<unsigned char[]> reply;
    unsigned int replyLength = 0;
    CallHandler(rows, Envelope(msgId).Get(), reply, replyLength);
    return g_called;
}

}  // namespace

TEST_F(InspectMsgProcessTest, ANullMessageIsRefusedWithoutAReply) {
    EXPECT_EQ(InspectMsgProcess(nullptr), 1U);
    EXPECT_EQ(support::Steps(), (Lines{"1 inspect_server 18: inspect server input is null"}));
}

TEST_F(InspectMsgProcessTest, AnUnknownSynchronousIdGetsOneEmptyReply) {
    for (const uint32_t id : {4U, 8U, 9999U}) {
        kivo::fake::ClearJournal();
        EXPECT_EQ(InspectMsgProcess(Envelope(id).Get()), 0U);
        EXPECT_EQ(support::Steps(), (Lines{Received(id), "reply " + std::to_string(id) + ": empty"}));
    }
}

TEST_F(InspectMsgProcessTest, AnUnknownAsynchronousIdGetsNoReply) {
    for (const uint32_t id : {4U, 8U, 9999U}) {
        kivo::fake::ClearJournal();
        EXPECT_EQ(InspectMsgProcess(Envelope(id).Asynchronous().Get()), 0U);
        EXPECT_EQ(support::Steps(), (Lines{Received(id)}));
    }
}

TEST_F(InspectMsgProcessTest, IgnoredIdsGetAnEmptyReply) {
    for (const uint32_t id : {10U, 11U, 12U, 13U, 14U, 16U, 1000U}) {
        kivo::fake::ClearJournal();
        EXPECT_EQ(InspectMsgProcess(Envelope(id, "payload").Get()), 0U);
        EXPECT_EQ(support::Steps(), (Lines{Received(id), "reply " + std::to_string(id) + ": empty"}));
    }
}

TEST_F(InspectMsgProcessTest, TheReceiveLineComesBeforeTheHandler) {
    EXPECT_EQ(InspectMsgProcess(Envelope(6).Param(5).Get()), 0U);
    EXPECT_EQ(support::Steps(), (Lines{Received(6), "3 inspect_dealmsg 19: stop group [5]", "reply 6: 1"}));
}

TEST_F(InspectMsgProcessTest, TheReceiveLineReadsNamesWithoutNulToTheirEnds) {
    Envelope message(9999);
    message.Asynchronous().From("sixteen_letters_", "0123456789abcdef", "");
    EXPECT_EQ(InspectMsgProcess(message.Get()), 0U);
    EXPECT_EQ(support::Steps(), (Lines{"3 inspect_server 18: inspect server recv msg id 9999 from "
                                       "[sixteen_letters_:0123456789abcdef]"}));
}

TEST_F(InspectMsgProcessTest, OnlyMessageType1IsAnswered) {
    for (const uint32_t type : {0U, 2U, 4294967295U}) {
        kivo::fake::ClearJournal();
        Envelope message(7);
        message.Get()->msgType = type;
        EXPECT_EQ(InspectMsgProcess(message.Get()), 0U);
        EXPECT_EQ(support::Steps(), (Lines{Received(7)}));
    }
}

TEST_F(InspectMsgProcessTest, AReplyThatCannotBeSentIsLoggedAndItsCodeReturned) {
    kivo::fake::Fail("OsMsgSynSendResp", 0x8002000f);
    EXPECT_EQ(InspectMsgProcess(Envelope(7).Get()), 0x8002000fU);
    EXPECT_EQ(support::Steps(),
              (Lines{Received(7), "1 inspect_server 18: [ OsMsgSynSendResp ] OsMsgSynSendResp err, ret = #8002000f "}));
}

TEST_F(InspectMsgProcessTest, AHandlerWithoutMemoryForItsReplyGivesAnEmptyOne) {
    const AllocFailure failure(AllocFailure::Kind::kNothrow, 4);
    EXPECT_EQ(InspectMsgProcess(Envelope(7).Get()), 0U);
    EXPECT_TRUE(failure.Happened());
    EXPECT_EQ(support::Steps(), (Lines{Received(7), "reply 7: empty"}));
}

TEST_F(InspectMsgProcessTest, AHandlerThatRunsOutOfMemoryIsLoggedAndAnsweredEmpty) {
    Envelope message(7, std::string(5000, 'n'));  // its name is copied after the reply was made
    const AllocFailure failure(AllocFailure::Kind::kThrowing, 5001);
    EXPECT_EQ(InspectMsgProcess(message.Get()), 0U);
    EXPECT_TRUE(failure.Happened());
    EXPECT_EQ(support::Steps(),
              (Lines{Received(7), "1 inspect_server 18: message handler given up: std::bad_alloc", "reply 7: empty"}));
}

TEST(CallHandlerTest, TakesTheFirstRowWithTheId) {
    EXPECT_EQ(Called({{1, Second}, {5, First}, {5, Second}}, 5), (Lines{"first"}));
}

TEST(CallHandlerTest, PassesOverARowWithoutHandler) {
    EXPECT_EQ(Called({{5, nullptr}, {6, First}, {5, Second}}, 5), (Lines{"second of 5"}));
}

TEST(CallHandlerTest, CallsNothingWhenNoRowMatches) {
    EXPECT_EQ(Called({{5, nullptr}, {6, First}}, 5), Lines{});
    EXPECT_EQ(Called({}, 5), Lines{});
}

TEST(CallHandlerTest, GivesTheHandlersReplyBack) {
    std::unique_ptr<unsigned char[]> reply;
    unsigned int replyLength = 0;
    const std::vector<DispatchRow> rows{{5, First}};
    CallHandler(rows, Envelope(5).Get(), reply, replyLength);
    EXPECT_EQ(replyLength, 3U);
    EXPECT_NE(reply, nullptr);
}
