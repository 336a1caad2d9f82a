// The order of the two table locks: the task table's may be taken while the result table's is held, never the other way
// round; reports and deletions ask a job to stop without it, and no owner is asked while it is held.
//
// The program is linked so that every pthread_mutex_lock and OsMsgSynSend of the server passes through here.
#include <pthread.h>

#include <array>
#include <atomic>
#include <string>
#include <vector>

#include "handlers/handlers.h"
#include "kivo/os_msg.h"
#include "support/group.h"
#include "support/handler_call.h"
#include "support/server_test.h"
#include "task/inspacet_task.h"

/// Knows where the locks are.
class ResultMgrPeer {
public:
    static pthread_mutex_t* Lock() { return g_resultMgr.m_tableLock.native_handle(); }
};

class InspacetTaskPeer {
public:
    static pthread_mutex_t* Lock() { return InspacetTask::m_tableLock.native_handle(); }
};

namespace {

// Known once a test runs: locks are taken before and after the tables live.
std::atomic<pthread_mutex_t*> g_resultLock{nullptr};
std::atomic<pthread_mutex_t*> g_taskLock{nullptr};

std::atomic<int> g_taskInResult{0};  // the task table's lock taken while the result table's was held
std::atomic<int> g_resultInTask{0};
std::atomic<int> g_sendInResult{0};
std::atomic<int> g_results{0};  // how often each was taken at all
std::atomic<int> g_tasks{0};
std::atomic<int> g_sends{0};

thread_local bool t_holdsResult = false;
thread_local bool t_holdsTask = false;

}  // namespace

extern "C" {

int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);
uint32_t __real_OsMsgSynSend(const TagMsgBlock* msg, TagMsgBlock** resp, uint32_t timeoutMs);

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (mutex == g_resultLock) {
        ++g_results;
        if (t_holdsTask) {
            ++g_resultInTask;
        }
        t_holdsResult = true;
    } else if (mutex == g_taskLock) {
        ++g_tasks;
        if (t_holdsResult) {
            ++g_taskInResult;
        }
        t_holdsTask = true;
    }
    return __real_pthread_mutex_lock(mutex);
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    if (mutex == g_resultLock) {
        t_holdsResult = false;
    }
    if (mutex == g_taskLock) {
        t_holdsTask = false;
    }
    return __real_pthread_mutex_unlock(mutex);
}

uint32_t __wrap_OsMsgSynSend(const TagMsgBlock* msg, TagMsgBlock** resp, uint32_t timeoutMs) {
    ++g_sends;
    if (t_holdsResult) {
        ++g_sendInResult;
    }
    return __real_OsMsgSynSend(msg, resp, timeoutMs);
}
}

namespace {

class LockOrderTest : public support::ServerTest {
protected:
    void SetUp() override {
        ServerTest::SetUp();
        support::OwnerAnswers("running", "");
        g_resultLock = ResultMgrPeer::Lock();
        g_taskLock = InspacetTaskPeer::Lock();
        for (std::atomic<int>* count :
             {&g_taskInResult, &g_resultInTask, &g_sendInResult, &g_results, &g_tasks, &g_sends}) {
            *count = 0;
        }
    }

    static void Run(const char* name) {
        tagKivoOmInspectionRequestMsg request = RequestFor(name);
        tagKivoOmInspectionDataItem item{};
        g_resultMgr.GetResult(request, item);
    }

    static void Report(const char* name) {
        tagKivoOmInspectionResult result = support::Result(name, "success", "");
        g_resultMgr.SetResult(result);
    }

private:
    static tagKivoOmInspectionRequestMsg RequestFor(const std::string& name) {
        tagKivoOmInspectionRequestMsg request{};
        name.copy(request.name, sizeof request.name - 1);
        request.data = "{}";
        request.len = 3;
        return request;
    }
};

TEST_F(LockOrderTest, AWaitTimerIsStartedUnderTheResultLockAndTheOwnerAskedWithout) {
    AddItem("item");
    Run("item");
    EXPECT_EQ(g_sends, 1);
    EXPECT_EQ(g_sendInResult, 0);
    EXPECT_EQ(g_taskInResult, 1);
    EXPECT_EQ(g_resultInTask, 0);
}

TEST_F(LockOrderTest, AReportStopsTheWaitTimerWithoutTheResultLock) {
    AddItem("item");
    Run("item");
    kivo::fake::Settle();
    g_taskInResult = 0;
    g_tasks = 0;
    Report("item");
    EXPECT_EQ(g_tasks, 1);
    EXPECT_EQ(g_taskInResult, 0);
}

TEST_F(LockOrderTest, ADeletionStopsTheWaitTimerWithoutTheResultLock) {
    AddItem("item");
    Run("item");
    kivo::fake::Settle();
    g_taskInResult = 0;
    g_tasks = 0;
    g_resultMgr.DelItem("item");
    EXPECT_EQ(g_tasks, 1);
    EXPECT_EQ(g_taskInResult, 0);
}

TEST_F(LockOrderTest, HoldsForAGroupThatIsStoppedAndForATimeLimit) {
    g_resultMgr.AddGroup({"unknown_group"});
    AddItem("stopped");
    AddItem("late", 2000);
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
    EXPECT_GT(g_results, 10);
    EXPECT_GT(g_tasks, 5);
    EXPECT_EQ(g_sends, 4);  // two runs and two stops
    EXPECT_EQ(g_sendInResult, 0);
    EXPECT_EQ(g_resultInTask, 0);
}

}  // namespace
