// The task table's lock: every operation takes it once; neither a thread is made nor a body run while it is held.
#include "support/journal_text.h"
#include "support/lock_trace.h"
#include "support/platform_test.h"
#include "task/inspacet_task.h"

using support::Lines;
using support::LockTrace;

namespace {

using InspacetTaskLockTest = support::PlatformTest;

unsigned int CreateEmpty() {
    return InspacetTask::CreateTask([](TaskData& /*task*/) {}, false);
}

}  // namespace

TEST_F(InspacetTaskLockTest, IsTakenToRegisterAJobAndLeftBeforeItsThreadIsMade) {
    const LockTrace trace;
    CreateEmpty();
    EXPECT_EQ(trace.Lines(), (Lines{"jobs", "thread"}));
}

TEST_F(InspacetTaskLockTest, IsTakenToFindTheJobAndToEraseItAndNotHeldByItsBody) {
    const LockTrace trace;
    InspacetTask::CreateTask([](TaskData& /*task*/) { CreateEmpty(); }, false);
    ASSERT_TRUE(kivo::fake::Finish());
    // Made, found, its body, erased; then the inner job, found and erased.
    EXPECT_EQ(trace.Lines(), (Lines{"jobs", "thread", "jobs", "jobs", "thread", "jobs", "jobs", "jobs"}));
}

TEST_F(InspacetTaskLockTest, IsTakenToStopAndToRemove) {
    const LockTrace trace;
    InspacetTask::StopTask(4711, true);
    EXPECT_EQ(trace.Lines(), Lines{"jobs"});
    InspacetTask::RemoveTask(4711);
    EXPECT_EQ(trace.Lines(), (Lines{"jobs", "jobs"}));
}

TEST_F(InspacetTaskLockTest, IsTakenAgainForAJobWithoutAThread) {
    kivo::fake::Fail("OsPthreadCreate", 11);
    const LockTrace trace;
    EXPECT_EQ(CreateEmpty(), 0U);
    EXPECT_EQ(trace.Lines(), (Lines{"jobs", "thread", "jobs"}));
}
