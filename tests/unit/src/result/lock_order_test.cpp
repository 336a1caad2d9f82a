// The order of the two table locks, over whole runs and all threads: the task table's may be taken while the result
// table's is held, never the other way round, and no owner is asked while it is held.
#include "handlers/handlers.h"
#include "support/group.h"
#include "support/handler_call.h"
#include "support/lock_trace.h"
#include "support/server_test.h"

using support::LockTrace;

namespace {

class ResultMgrLockOrderTest : public support::ServerTest {
protected:
    void SetUp() override {
        ServerTest::SetUp();
        support::OwnerAnswers("running", "");
    }

    static void Report(const char* name) {
        tagKivoOmInspectionResult result = support::Result(name, "success", "");
        g_resultMgr.SetResult(result);
    }
};

}  // namespace

TEST_F(ResultMgrLockOrderTest, HoldsForAGroupThatIsStoppedAndForATimeLimit) {
    g_resultMgr.AddGroup({"unknown_group"});
    AddItem("stopped");
    AddItem("late", 2000);
    const LockTrace trace;
    support::Envelope start(19, support::GroupPayload({"stopped", "late"}));
    const uint32_t taskId = support::Call(Inspect::ASyncDealGroup, start).Number();
    kivo::fake::Pass(2);
    support::Envelope stop(6, "");
    stop.Param(taskId);
    EXPECT_EQ(support::Call(Inspect::SyncDealStopGroup, stop).Number(), 0U);
    kivo::fake::Pass(5);
    Report("stopped");
    kivo::fake::Pass(5);
    EXPECT_EQ(kivo::fake::LiveThreads(), 0U);
    EXPECT_GT(trace.Count("table"), 10);
    EXPECT_GT(trace.Count("jobs"), 5);
    EXPECT_EQ(trace.Count("jobs under table"), 2);  // a wait timer for each item
    EXPECT_EQ(trace.Count("ask 4"), 4);             // two runs and two stops
    EXPECT_EQ(trace.CountFrom("ask 4"), 4);
    EXPECT_EQ(trace.CountUnder("jobs"), 0);
    EXPECT_EQ(trace.CountFrom("event"), trace.Count("event 8 under table") + trace.Count("event 9 under table"));
}
