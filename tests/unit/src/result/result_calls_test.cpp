// What the result table calls, and what else has happened by then.
//
// The program is linked so that every OsSleep, sleep, OsGetSystemTime, OsMsgBroadcastEvent, OsRwLockWrLock and
// InspacetTask::StopTask of the server passes through here.
#include <functional>
#include <utility>
#include <vector>

#include "kivo/os_lock.h"
#include "kivo/os_msg.h"
#include "kivo/os_thread.h"
#include "kivo/os_time.h"
#include "support/journal_text.h"
#include "support/result_test.h"
#include "task/inspacet_task.h"

using support::Lines;

/// Looks into the task table.
class InspacetTaskPeer {
public:
    static bool IsAskedToStop(unsigned int id) { return InspacetTask::manager.m_tasks.at(id)->stopFlag; }
};

namespace {

std::vector<uint32_t> g_osSleeps;  // their seconds
std::vector<uint32_t> g_sleeps;
std::vector<unsigned int> g_stops;  // the jobs that were asked to stop

// Happen once, before the next call.
std::function<void()> g_beforeTimeIsRead;
std::function<void()> g_beforeBroadcast;
std::function<void()> g_beforeRegistryChanges;

void Happen(std::function<void()>& event) {
    if (const auto once = std::exchange(event, nullptr)) {
        once();
    }
}

}  // namespace

extern "C" {

decltype(OsSleep) __real_OsSleep;
unsigned __real_sleep(unsigned seconds);
decltype(OsGetSystemTime) __real_OsGetSystemTime;
decltype(OsMsgBroadcastEvent) __real_OsMsgBroadcastEvent;
decltype(OsRwLockWrLock) __real_OsRwLockWrLock;

unsigned int __real__ZN12InspacetTask8StopTaskEjb(unsigned int taskId, bool force);

unsigned int __wrap__ZN12InspacetTask8StopTaskEjb(unsigned int taskId, bool force) {
    g_stops.push_back(taskId);
    return __real__ZN12InspacetTask8StopTaskEjb(taskId, force);
}

uint32_t __wrap_OsSleep(uint32_t seconds) {
    g_osSleeps.push_back(seconds);
    return __real_OsSleep(seconds);
}

unsigned __wrap_sleep(unsigned seconds) {
    g_sleeps.push_back(seconds);
    return __real_sleep(seconds);
}

uint64_t __wrap_OsGetSystemTime() {
    Happen(g_beforeTimeIsRead);
    return __real_OsGetSystemTime();
}

uint32_t __wrap_OsMsgBroadcastEvent(const OsMsgEvent* event, uint32_t scope) {
    Happen(g_beforeBroadcast);
    return __real_OsMsgBroadcastEvent(event, scope);
}

uint32_t __wrap_OsRwLockWrLock(OsRwLock* lock) {
    Happen(g_beforeRegistryChanges);
    return __real_OsRwLockWrLock(lock);
}
}

namespace {

class ResultMgrCallsTest : public support::ResultTest {
protected:
    // Starts a run with this time limit, of which the owner says that it goes on.
    void Begin(unsigned int timeout) {
        AddItem("a", timeout);
        support::OwnerAnswers("running", "10%");
        ASSERT_EQ(Run("a"), "a|running|10%");
        kivo::fake::Settle();
        kivo::fake::ClearJournal();
        m_taskId = ResultMgrPeer(m_mgr).Entry("a").taskId;
    }

    uint32_t m_taskId = 0;
};

TEST_F(ResultMgrCallsTest, TheWaitTimerSleepsInSecondsWhichNoSignalShortens) {
    g_osSleeps.clear();
    Begin(3000);
    kivo::fake::Pass(5);
    EXPECT_EQ(Stored("a"), "a|fail|timeout");
    EXPECT_EQ(g_osSleeps, (std::vector<uint32_t>{1, 1, 1}));
    EXPECT_EQ(g_sleeps, std::vector<uint32_t>{});
}

TEST_F(ResultMgrCallsTest, AStopWhileTheTimeOutIsEnteredKeepsItsLineBack) {
    Begin(1000);
    g_beforeTimeIsRead = [this] { EXPECT_EQ(InspacetTask::StopTask(m_taskId, true), 0U); };
    kivo::fake::Pass(1);
    EXPECT_EQ(g_beforeTimeIsRead, nullptr);
    EXPECT_EQ(Stored("a"), "a|fail|timeout");
    EXPECT_EQ(support::Steps(), Lines{"3 ResultMgr 13: stop wait[a]"});
}

TEST_F(ResultMgrCallsTest, DelItemEndsTheRunAndErasesTheItemThenUnregistersThenStopsTheWaitTimer) {
    Begin(0);
    bool stillThere = false;
    g_beforeBroadcast = [&] { stillThere = ResultMgrPeer(m_mgr).Knows("a"); };
    std::string stored;
    Lines events;
    bool askedToStop = true;
    g_beforeRegistryChanges = [&] {
        stored = Stored("a");
        events = support::Events();
        askedToStop = InspacetTaskPeer::IsAskedToStop(m_taskId);
    };
    m_mgr.DelItem("a");
    EXPECT_TRUE(stillThere);
    EXPECT_EQ(stored, "||");
    EXPECT_EQ(events, (Lines{"event 8: a|running|10%", "event 9: 1"}));
    EXPECT_FALSE(askedToStop);
    EXPECT_TRUE(InspacetTaskPeer::IsAskedToStop(m_taskId));
}

TEST_F(ResultMgrCallsTest, ReportsAndDeletionsStopTheWaitTimerThatTheyFindAndNoOther) {
    g_stops.clear();
    m_mgr.DelItem("a");
    AddItem("a");
    Report("a", "success", "not waited for");
    m_mgr.DelItem("a");
    EXPECT_EQ(g_stops, std::vector<unsigned int>{});
    Begin(0);
    Report("a", "success", "waited for");
    m_mgr.DelItem("a");
    EXPECT_EQ(g_stops, std::vector<unsigned int>{m_taskId});
    Begin(0);
    m_mgr.DelItem("a");
    EXPECT_EQ(g_stops.back(), m_taskId);
}

}  // namespace
