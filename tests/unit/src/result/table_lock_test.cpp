// The result table's lock: every operation takes it, what happens outside the table is left for after it, and events
// are sent while it is held.
#include <string>
#include <vector>

#include "result/result_mgr.h"
#include "support/journal_text.h"
#include "support/lock_trace.h"
#include "support/records.h"
#include "support/server_test.h"

using support::Lines;
using support::LockTrace;

namespace {

class ResultMgrLockTest : public support::ServerTest {
protected:
    void SetUp() override {
        ServerTest::SetUp();
        g_resultMgr.AddGroup({"unknown_group"});
        AddItem("item");
    }

    // Runs the item; the lines that this gave.
    static Lines Run(const std::string& name = "item") {
        tagKivoOmInspectionRequestMsg request{"", 3, 0, "{}"};
        name.copy(request.name, sizeof(request.name) - 1);
        tagKivoOmInspectionDataItem item{};
        const LockTrace trace;
        g_resultMgr.GetResult(request, item);
        return trace.Lines();
    }

    static void RunAsynchronously() {
        support::OwnerAnswers("running", "");
        Run();
        kivo::fake::Settle();  // its wait timer runs
    }

    static Lines Report(const char* status) {
        tagKivoOmInspectionResult result = support::Result("item", status, "");
        const LockTrace trace;
        g_resultMgr.SetResult(result);
        return trace.Lines();
    }

    static Lines UnLock() {
        tagKivoOmInspectionDataItem item{};
        const LockTrace trace;
        g_resultMgr.UnLockResult("item", item);
        return trace.Lines();
    }
};

}  // namespace

TEST_F(ResultMgrLockTest, IsNotTakenAtTheStart) {
    const LockTrace trace;
    g_resultMgr.Init();
    g_resultMgr.AddGroup({"unknown_group"});
    EXPECT_EQ(trace.Lines(), Lines{});
}

TEST_F(ResultMgrLockTest, AnItemIsAddedUnderItAndItsOwnerWithout) {
    const LockTrace trace;
    g_resultMgr.AddItem("item", 0, support::Owner());
    EXPECT_EQ(trace.Lines(), (Lines{"table", "registry for writing"}));
}

TEST_F(ResultMgrLockTest, AnIdleItemIsDeletedUnderItAndItsOwnerWithout) {
    const LockTrace trace;
    g_resultMgr.DelItem("item");
    g_resultMgr.DelItem("nobody");
    EXPECT_EQ(trace.Lines(), (Lines{"table", "registry for writing", "table", "registry for writing"}));
}

TEST_F(ResultMgrLockTest, ARunningItemIsDeletedUnderItAndItsWaitTimerStoppedWithout) {
    RunAsynchronously();
    const LockTrace trace;
    g_resultMgr.DelItem("item");
    EXPECT_EQ(trace.Lines(),
              (Lines{"table", "event 8 under table", "event 9 under table", "registry for writing", "jobs"}));
}

TEST_F(ResultMgrLockTest, RequestersComeGoAndAreReadUnderIt) {
    std::vector<InspectClientMsg> list;
    const LockTrace trace;
    g_resultMgr.AddRequesterMsg("item", {"client", "task"});
    EXPECT_EQ(trace.Count("table"), 1);
    g_resultMgr.GetRequesterMsg("item", list);
    EXPECT_EQ(trace.Count("table"), 2);
    g_resultMgr.DelRequesterMsg("item", {"client", "task"});
    EXPECT_EQ(trace.Lines(), (Lines{"table", "table", "table"}));
}

TEST_F(ResultMgrLockTest, ResultsAreReadAndStatusesWrittenUnderIt) {
    tagKivoOmInspectionDataItem item{};
    const LockTrace trace;
    g_resultMgr.GetResultStatic("item", item);
    EXPECT_EQ(trace.Count("table"), 1);
    g_resultMgr.SetResultStatic("item", "idle");
    EXPECT_EQ(trace.Lines(), (Lines{"table", "table"}));
}

TEST_F(ResultMgrLockTest, ARunBeginsAndEndsUnderItAndTheOwnerIsAskedWithout) {
    support::OwnerAnswers("success", "");
    EXPECT_EQ(Run(), (Lines{"table", "event 9 under table", "event 8 under table", "registry for reading", "ask 4",
                            "table", "event 8 under table", "event 9 under table"}));
}

TEST_F(ResultMgrLockTest, AWaitTimerIsStartedUnderIt) {
    support::OwnerAnswers("running", "");
    EXPECT_EQ(Run(), (Lines{"table", "event 9 under table", "event 8 under table", "registry for reading", "ask 4",
                            "table", "jobs under table", "thread under table"}));
}

TEST_F(ResultMgrLockTest, ARunInProgressIsJoinedUnderIt) {
    RunAsynchronously();
    EXPECT_EQ(Run(), Lines{"table"});
}

TEST_F(ResultMgrLockTest, AnUnknownItemIsLookedForUnderIt) {
    EXPECT_EQ(Run("nobody"), Lines{"table"});
}

TEST_F(ResultMgrLockTest, AnOwnerIsAskedWithoutIt) {
    support::OwnerAnswers("success", "");
    tagKivoOmInspectionRequestMsg request{"item", 3, 0, "{}"};
    tagKivoOmInspectionResult result{};
    const LockTrace trace;
    g_resultMgr.RunResult(request, result);
    EXPECT_EQ(trace.Lines(), (Lines{"registry for reading", "ask 4"}));
}

TEST_F(ResultMgrLockTest, AReportIsTakenUnderItAndTheWaitTimerStoppedWithout) {
    RunAsynchronously();
    EXPECT_EQ(Report("running"), Lines{"table"});
    EXPECT_EQ(Report("success"), (Lines{"table", "jobs"}));
    EXPECT_EQ(Report("success"), Lines{"table"});  // the timer is stopped
}

TEST_F(ResultMgrLockTest, ARunIsReleasedUnderIt) {
    RunAsynchronously();
    EXPECT_EQ(UnLock(), Lines{"table"});  // it still runs
    Report("success");
    EXPECT_EQ(UnLock(), (Lines{"table", "event 8 under table", "event 9 under table"}));
}

TEST_F(ResultMgrLockTest, ATimeLimitIsNotedUnderIt) {
    AddItem("limited", 1000);
    support::OwnerAnswers("running", "");
    Run("limited");
    kivo::fake::Settle();
    const LockTrace trace;
    kivo::fake::Pass(1);
    EXPECT_EQ(trace.Lines(), (Lines{"table", "jobs"}));  // the job's entry goes last
}

TEST_F(ResultMgrLockTest, AGroupStartsAndStopsUnderIt) {
    const LockTrace trace;
    g_resultMgr.StartGroup("unknown_group");
    const Lines started{"table", "event 9 under table", "event 8 under table"};
    EXPECT_EQ(trace.Lines(), started);
    g_resultMgr.StopGroup("unknown_group");
    Lines all = started;
    all.insert(all.end(), {"table", "event 8 under table", "event 9 under table"});
    EXPECT_EQ(trace.Lines(), all);
}
