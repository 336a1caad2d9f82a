// Synchronous group requests.
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

class SyncDealGroupTest : public support::PlatformTest {
protected:
    // Starts a job that looks a second later whether it was asked to stop. Gives its task id.
    unsigned int StartJob(bool forceOnly) {
        return InspacetTask::CreateTask(
            [this](TaskData& task) {
                kivo::fake::Pass(1);
                stopped_ = task.stopFlag;
            },
            forceOnly);
    }

    static Reply StopGroup(unsigned int id) {
        Envelope message(6);
        return Call(Inspect::SyncDealStopGroup, message.Param(id));
    }

    // Lets the job end.
    [[nodiscard]] bool WasStopped() const {
        EXPECT_TRUE(kivo::fake::Finish());
        return stopped_;
    }

private:
    bool stopped_ = false;
};

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
    EXPECT_EQ(StopGroup(4294967295U).Number(), 1U);
    EXPECT_EQ(support::Steps(), (Lines{"3 inspect_dealmsg 19: stop group [4294967295]"}));
}

TEST_F(SyncDealGroupTest, AStopReachesTheJobOfThatTaskId) {
    const unsigned int id = StartJob(false);
    EXPECT_EQ(StopGroup(id).Number(), 0U);
    EXPECT_TRUE(WasStopped());
}

TEST_F(SyncDealGroupTest, AStopIsUnforced) {
    const unsigned int id = StartJob(true);
    EXPECT_EQ(StopGroup(id).Number(), 1U);
    EXPECT_FALSE(WasStopped());
}

TEST_F(SyncDealGroupTest, AStopWithoutMemoryForTheReplyStopsNothing) {
    const unsigned int id = StartJob(false);
    {
        const AllocFailure failure(AllocFailure::Kind::kNothrow, 4);
        EXPECT_TRUE(StopGroup(id).Empty());
        EXPECT_TRUE(failure.Happened());
    }
    EXPECT_EQ(support::LogLines(), Lines{"3 inspect_dealmsg 19: stop group [" + std::to_string(id) + "]"});
    EXPECT_FALSE(WasStopped());
}
