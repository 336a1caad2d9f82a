// The wait timer: time limits, stops, and what happens without a thread for it.
#include <optional>
#include <string>

#include "result/result_mgr.h"
#include "support/alloc_failure.h"
#include "support/journal_text.h"
#include "support/result_test.h"
#include "task/inspacet_task.h"

using support::Lines;

namespace {

class ResultMgrWaitTest : public support::ResultTest {
protected:
    void SetUp() override {
        ResultTest::SetUp();
        support::OwnerAnswers("running", "10%");
    }

    // Starts a run with this time limit; its timer has begun to wait.
    void Begin(unsigned int timeout) {
        AddItem("a", timeout);
        ASSERT_EQ(Run("a"), "a|running|10%");
        kivo::fake::Settle();
        kivo::fake::ClearJournal();
    }
};

}  // namespace

TEST_F(ResultMgrWaitTest, TimesOutAfterTheFourthSecondOf3500Milliseconds) {
    Begin(3500);
    kivo::fake::Pass(3);
    EXPECT_EQ(Stored("a"), "a|running|10%");
    kivo::fake::Pass(1);
    EXPECT_EQ(Stored("a"), "a|fail|timeout");
    EXPECT_EQ(m_item.startTime, 1700000000000U);
    EXPECT_EQ(m_item.endTime, 1700000004000U);
    EXPECT_EQ(support::Steps(), (Lines{"3 ResultMgr 13: stop wait[a]", "3 ResultMgr 13: timeout wait[a]"}));
}

TEST_F(ResultMgrWaitTest, TimesOutAfterTheThirdSecondOf3000Milliseconds) {
    Begin(3000);
    kivo::fake::Pass(2);
    EXPECT_EQ(Stored("a"), "a|running|10%");
    kivo::fake::Pass(1);
    EXPECT_EQ(Stored("a"), "a|fail|timeout");
}

TEST_F(ResultMgrWaitTest, TimesOutAfterTheFirstSecondOf1Millisecond) {
    Begin(1);
    EXPECT_EQ(Stored("a"), "a|running|10%");
    kivo::fake::Pass(1);
    EXPECT_EQ(Stored("a"), "a|fail|timeout");
    EXPECT_EQ(m_item.endTime, 1700000001000U);
}

TEST_F(ResultMgrWaitTest, TimesOutAfterTheSecondSecondOf1001Milliseconds) {
    Begin(1001);
    kivo::fake::Pass(1);
    EXPECT_EQ(Stored("a"), "a|running|10%");
    kivo::fake::Pass(1);
    EXPECT_EQ(Stored("a"), "a|fail|timeout");
}

TEST_F(ResultMgrWaitTest, TheLongestTimeLimitComes) {
    Begin(4294967295);
    kivo::fake::Pass(4294967);
    EXPECT_EQ(Stored("a"), "a|running|10%");
    kivo::fake::Pass(1);
    EXPECT_EQ(Stored("a"), "a|fail|timeout");
}

TEST_F(ResultMgrWaitTest, WithoutATimeLimitGoesOnUntilStopped) {
    Begin(0);
    kivo::fake::Pass(100000);
    EXPECT_EQ(Stored("a"), "a|running|10%");
    Report("a", "success", "");
    kivo::fake::Pass(1);
    EXPECT_EQ(support::Steps(), (Lines{"3 ResultMgr 13: stop wait[a]"}));
    EXPECT_EQ(kivo::fake::LiveThreads(), 0U);
}

TEST_F(ResultMgrWaitTest, ATimeOutLeavesTheRunHeld) {
    Begin(1000);
    m_mgr.AddRequesterMsg("a", {"p", "t"});
    kivo::fake::Pass(1);
    EXPECT_EQ(support::Events(), Lines{});
    EXPECT_EQ(ResultMgrPeer(m_mgr).Entry("a").startCount, 1);
    EXPECT_EQ(ResultMgrPeer(m_mgr).Entry("a").taskId, 0U);
    EXPECT_EQ(ResultMgrPeer(m_mgr).Entry("a").requesters.size(), 1U);
    EXPECT_EQ(UnLock("a"), "1 a|fail|timeout");
    EXPECT_EQ(support::Events(), (Lines{"event 8: a|fail|timeout", "event 9: 1"}));
}

TEST_F(ResultMgrWaitTest, AResultAfterTheTimeOutIsTaken) {
    Begin(1000);
    kivo::fake::Pass(1);
    Report("a", "running", "60%");
    EXPECT_EQ(Stored("a"), "a|fail|timeout");
    kivo::fake::Pass(5);
    Report("a", "success", "late");
    EXPECT_EQ(Stored("a"), "a|success|late");
    EXPECT_EQ(m_item.endTime, 1700000006000U);
}

TEST_F(ResultMgrWaitTest, AStatusWrittenMeanwhileIsNoTimeOut) {
    Begin(2000);
    m_mgr.SetResultStatic("a", "idle");
    kivo::fake::ClearJournal();
    kivo::fake::Pass(2);
    EXPECT_EQ(Stored("a"), "a|idle|10%");
    EXPECT_EQ(support::Steps(), (Lines{"3 ResultMgr 13: stop wait[a]"}));
}

TEST_F(ResultMgrWaitTest, CanOnlyBeStoppedByForce) {
    Begin(0);
    const uint32_t taskId = ResultMgrPeer(m_mgr).Entry("a").taskId;
    EXPECT_EQ(InspacetTask::StopTask(taskId, false), 1U);
    kivo::fake::Pass(2);
    EXPECT_EQ(kivo::fake::LiveThreads(), 1U);
    EXPECT_EQ(InspacetTask::StopTask(taskId, true), 0U);
    kivo::fake::Pass(1);
    EXPECT_EQ(kivo::fake::LiveThreads(), 0U);
    EXPECT_EQ(Stored("a"), "a|running|10%");
}

TEST_F(ResultMgrWaitTest, StoppedBeforeItBeginsItDoesNotSleep) {
    AddItem("a", 5000);
    Run("a");
    Report("a", "success", "");  // the timer's thread has not run yet
    kivo::fake::ClearJournal();
    kivo::fake::Settle();
    EXPECT_EQ(support::Steps(), (Lines{"3 ResultMgr 13: start wait[a]", "3 ResultMgr 13: stop wait[a]"}));
    EXPECT_EQ(kivo::fake::LiveThreads(), 0U);
}

TEST_F(ResultMgrWaitTest, WithoutAThreadTheRunFailsAndStaysHeld) {
    AddItem("a");
    kivo::fake::Fail("OsPthreadCreate", 11);
    EXPECT_EQ(Run("a"), "a|fail|wait err");
    EXPECT_EQ(support::LogLines(),
              (Lines{"3 ResultMgr 13: RunResult ret[0] name[a] result[running]",
                     "1 inspacetTask 16: createthread error", "3 ResultMgr 13: create thread err[a]"}));
    EXPECT_EQ(support::Events(), (Lines{"event 9: 0", "event 8: a|running|begin"}));
    EXPECT_EQ(ResultMgrPeer(m_mgr).Entry("a").startCount, 1);
    EXPECT_EQ(ResultMgrPeer(m_mgr).Entry("a").taskId, 0U);
    EXPECT_EQ(UnLock("a"), "1 a|fail|wait err");
    EXPECT_EQ(support::Events().back(), "event 9: 1");
}

TEST_F(ResultMgrWaitTest, WithoutMemoryForTheTimerTheRunFailsAndStaysHeld) {
    const std::string name(31, 'n');  // too long for a string to hold it without memory of its own
    for (const std::size_t size : {name.size() + 1, sizeof(TaskData)}) {
        SCOPED_TRACE(size);
        AddItem(name, 1000);
        std::optional<support::AllocFailure> failure;
        support::OwnerDoes([&failure, size](const kivo::fake::Entry& /*message*/) {  // the timer is started after it
            failure.emplace(support::AllocFailure::Kind::kThrowing, size);
            return kivo::fake::Answer{.data = support::BytesOf(support::Result("", "running", ""))};
        });
        EXPECT_EQ(Run(name), name + "|fail|wait err");
        EXPECT_TRUE(failure && failure->Happened());
        failure.reset();
        EXPECT_EQ(support::LogLines().back(), "3 ResultMgr 13: create thread err[" + name + "]");
        EXPECT_EQ(kivo::fake::LiveThreads(), 0U);
        EXPECT_EQ(ResultMgrPeer(m_mgr).Entry(name).startCount, 1);
        EXPECT_EQ(UnLock(name), "1 " + name + "|fail|wait err");
        m_mgr.DelItem(name);
    }
}

TEST_F(ResultMgrWaitTest, OfAnItemDeletedAndAddedAgainDoesNotTouchTheNewOne) {
    Begin(2000);
    m_mgr.DelItem("a");
    m_mgr.AddItem("a", 0, support::Owner());
    kivo::fake::Pass(5);
    EXPECT_EQ(Stored("a"), "a|idle|init");
}
