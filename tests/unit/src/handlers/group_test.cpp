// Synchronous group requests.
#include <functional>
#include <string>

#include "handlers/handlers.h"
#include "support/alloc_failure.h"
#include "support/handler_call.h"
#include "support/journal_text.h"
#include "support/platform_test.h"
#include "task/inspacet_task.h"

using support::AllocFailure;
using support::Bytes;
using support::Call;
using support::Envelope;
using support::Lines;
using support::Reply;

namespace {

using SyncDealGroupTest = support::PlatformTest;

}  // namespace

TEST_F(SyncDealGroupTest, AGroupRequestOfThreeBytesIsAnsweredWithAnEmptyRecord) {
    Envelope message(1, "{}\n");
    const Reply reply = Call(Inspect::SyncDealGroup, message);
    EXPECT_EQ(reply.length, 6688U);
    EXPECT_EQ(reply.bytes, Bytes(6688, 0));
    EXPECT_EQ(support::Steps(), Lines{});
}

TEST_F(SyncDealGroupTest, AGroupRequestOfTwoBytesIsNotAnswered) {
    Envelope message(1, "{}");
    EXPECT_TRUE(Call(Inspect::SyncDealGroup, message).Empty());
}

TEST_F(SyncDealGroupTest, AGroupRequestWithoutPayloadIsNotAnswered) {
    Envelope message(1);
    message.Get()->dataLen = 100;
    EXPECT_TRUE(Call(Inspect::SyncDealGroup, message).Empty());
}

TEST_F(SyncDealGroupTest, AGroupRequestWithoutMemoryIsNotAnswered) {
    Envelope message(1, "{}\n");
    const AllocFailure failure(AllocFailure::Kind::kNothrow, 6688);
    EXPECT_TRUE(Call(Inspect::SyncDealGroup, message).Empty());
    EXPECT_TRUE(failure.Happened());
}

TEST_F(SyncDealGroupTest, AStopOfAnUnknownTaskIs1) {
    Envelope message(6);
    EXPECT_EQ(Call(Inspect::SyncDealStopGroup, message.Param(4294967295U)).Number(), 1U);
    EXPECT_EQ(support::Steps(), (Lines{"3 inspect_dealmsg 19: stop group [4294967295]"}));
}

TEST_F(SyncDealGroupTest, AStopReachesTheJobOfThatTaskId) {
    bool stopped = false;
    const unsigned int id = InspacetTask::CreateTask(
        [&stopped](TaskData& task) {
            kivo::fake::Pass(1);
            stopped = task.stopFlag;
        },
        false);
    Envelope message(6);
    EXPECT_EQ(Call(Inspect::SyncDealStopGroup, message.Param(id)).Number(), 0U);
    ASSERT_TRUE(kivo::fake::Finish());
    EXPECT_TRUE(stopped);
}

TEST_F(SyncDealGroupTest, AStopIsUnforced) {
    bool stopped = false;
    const unsigned int id = InspacetTask::CreateTask(
        [&stopped](TaskData& task) {
            kivo::fake::Pass(1);
            stopped = task.stopFlag;
        },
        true);
    Envelope message(6);
    EXPECT_EQ(Call(Inspect::SyncDealStopGroup, message.Param(id)).Number(), 1U);
    ASSERT_TRUE(kivo::fake::Finish());
    EXPECT_FALSE(stopped);
}

TEST_F(SyncDealGroupTest, AStopWithoutMemoryForTheReplyStopsNothing) {
    bool stopped = false;
    const unsigned int id = InspacetTask::CreateTask(
        [&stopped](TaskData& task) {
            kivo::fake::Pass(1);
            stopped = task.stopFlag;
        },
        false);
    {
        Envelope message(6);
        const AllocFailure failure(AllocFailure::Kind::kNothrow, 4);
        EXPECT_TRUE(Call(Inspect::SyncDealStopGroup, message.Param(id)).Empty());
        EXPECT_TRUE(failure.Happened());
    }
    EXPECT_EQ(support::LogLines(), Lines{"3 inspect_dealmsg 19: stop group [" + std::to_string(id) + "]"});
    ASSERT_TRUE(kivo::fake::Finish());
    EXPECT_FALSE(stopped);
}
