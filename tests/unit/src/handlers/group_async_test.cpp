// Asynchronous group requests: what starts a group, and what refuses it.
#include <string>
#include <vector>

#include "handlers/group_run.h"
#include "handlers/handlers.h"
#include "support/alloc_failure.h"
#include "support/group.h"
#include "support/handler_call.h"
#include "support/journal_text.h"
#include "support/server_test.h"
#include "task/inspacet_task.h"

using kivo::fake::Kind;
using support::Call;
using support::Envelope;
using support::GroupPayload;
using support::Lines;

namespace {

class ASyncDealGroupTest : public support::ServerTest {
protected:
    void SetUp() override {
        ServerTest::SetUp();
        g_resultMgr.AddGroup({"unknown_group", "kivo_group_trace"});
    }

    static support::Reply Send(const std::string& payload) {
        Envelope message(19, payload);
        return Call(Inspect::ASyncDealGroup, message);
    }

    // Lets a group that runs come to its end.
    static void StopAndFinish(uint32_t taskId) {
        InspacetTask::StopTask(taskId, false);
        EXPECT_TRUE(kivo::fake::Finish());
    }
};

}  // namespace

TEST_F(ASyncDealGroupTest, StartsAJobAndRepliesWithItsIdentifier) {
    const support::Reply reply = Send(GroupPayload({"a"}));
    EXPECT_EQ(reply.length, 4U);
    EXPECT_GT(reply.Number(), 16U);
    EXPECT_EQ(support::Steps(), (Lines{"event 9: 0", "event 8: unknown_group|running|unknown_group", "OsPthreadDetach",
                                       "3 inspect_dealmsg 19: start group [" + std::to_string(reply.Number()) + "]"}));
    StopAndFinish(reply.Number());
}

TEST_F(ASyncDealGroupTest, A33rdTextCountsForTheGroupAlthoughItDoesNotRun) {
    std::vector<std::string> items(32, "other");
    items.emplace_back("kivo_om_diag_msg");
    const support::Reply reply = Send(GroupPayload(items));
    EXPECT_EQ(Stored("kivo_group_trace"), "kivo_group_trace|running|kivo_group_trace");
    StopAndFinish(reply.Number());
}

TEST_F(ASyncDealGroupTest, TheFirstTextThatNamesAMemberDecidesTheGroup) {
    const support::Reply reply = Send(GroupPayload({"kivo_om_diag_msg", "other"}));
    EXPECT_EQ(Stored("kivo_group_trace"), "kivo_group_trace|running|kivo_group_trace");
    EXPECT_EQ(Stored("unknown_group"), "unknown_group|success|init");
    StopAndFinish(reply.Number());
}

TEST_F(ASyncDealGroupTest, WhileItRunsASecondIsRefusedAndTheFirstIsStoppedInTheTable) {
    const uint32_t first = Send(GroupPayload({"a"})).Number();
    kivo::fake::ClearJournal();
    EXPECT_EQ(Send(GroupPayload({"b"})).Number(), 16U);
    EXPECT_EQ(support::Steps(), Lines{});  // two runs counted, then one: nothing begins or ends, nothing is logged
    EXPECT_EQ(Send(GroupPayload({"b"})).Number(), 16U);
    StopAndFinish(first);
    EXPECT_EQ(Stored("unknown_group"), "unknown_group|success|unknown_group");
    EXPECT_EQ(support::Events().back(), "event 9: 1");
}

TEST_F(ASyncDealGroupTest, AnotherGroupMayRunBesideIt) {
    const uint32_t first = Send(GroupPayload({"a"})).Number();
    const uint32_t second = Send(GroupPayload({"kivo_om_diag_log"})).Number();
    EXPECT_EQ(second, first + 1);
    StopAndFinish(first);
    StopAndFinish(second);
}

TEST_F(ASyncDealGroupTest, WithoutAWorkerTheGroupIsStoppedAndTheReplyIs14) {
    kivo::fake::Fail("OsPthreadCreate", 11);
    EXPECT_EQ(Send(GroupPayload({"a"})).Number(), 14U);
    EXPECT_EQ(support::Steps(),
              (Lines{"event 9: 0", "event 8: unknown_group|running|unknown_group",
                     "1 inspacetTask 16: createthread error", "event 8: unknown_group|success|unknown_group",
                     "event 9: 1", "3 inspect_dealmsg 19: start group [14]"}));
}

TEST_F(ASyncDealGroupTest, WithoutMemoryForTheJobTheGroupIsStoppedAndTheReplyIs14) {
    // The callable does not fit into std::function itself: its block is the first of its size.
    const support::AllocFailure failure(
        support::AllocFailure::Kind::kThrowing,
        sizeof(std::vector<std::string>) + sizeof(InspectClientMsg) + sizeof(std::string));
    EXPECT_EQ(Send(GroupPayload({"a"})).Number(), 14U);
    EXPECT_TRUE(failure.Happened());
    EXPECT_EQ(Stored("unknown_group"), "unknown_group|success|unknown_group");
    EXPECT_EQ(support::Events().back(), "event 9: 1");
}

TEST_F(ASyncDealGroupTest, OneThatTheTableDoesNotKnowMayStartToo) {
    g_resultMgr.DelItem("unknown_group");
    const uint32_t first = Send(GroupPayload({"a"})).Number();
    EXPECT_GT(first, 16U);
    StopAndFinish(first);
}

TEST_F(ASyncDealGroupTest, APayloadOfTwoBytesIsIgnoredAndOneOfThreeIsTaken) {
    EXPECT_TRUE(Send(std::string("a\0", 2)).Empty());
    EXPECT_EQ(support::Steps(), Lines{});
    const support::Reply reply = Send(std::string("a\0\0", 3));
    EXPECT_GT(reply.Number(), 16U);
    StopAndFinish(reply.Number());
}

TEST_F(ASyncDealGroupTest, ANullPayloadIsIgnored) {
    Envelope message(19);
    EXPECT_TRUE(Call(Inspect::ASyncDealGroup, message).Empty());
}

TEST_F(ASyncDealGroupTest, WithoutMemoryForTheReplyNothingStarts) {
    const support::AllocFailure failure(support::AllocFailure::Kind::kNothrow, 4);
    EXPECT_TRUE(Send(GroupPayload({"a"})).Empty());
    EXPECT_EQ(support::Steps(), Lines{});
}
