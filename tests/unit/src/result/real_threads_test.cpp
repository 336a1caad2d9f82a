// The one result table with threads that really run side by side, so that the thread sanitizer sees what the fake
// platform's turn-taking hides. A second passes at once here.
//
// What this program does on its own (answers, seconds, log lines) synchronises nothing: it would hide races.
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstring>
#include <functional>
#include <latch>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "result/result_mgr.h"
#include "support/bare_platform.h"
#include "support/eventually.h"
#include "support/records.h"
#include "task/inspacet_task.h"

namespace {

constexpr int kRounds = 300;
constexpr unsigned int kLimit = 1000;  // ms: one second, which passes at once

// The numbers that event 9 told, and how often event 8 was sent. Guarded by the table's lock, under which events are
// sent, and by nothing else.
std::vector<uint32_t> g_busyOrIdle;
std::size_t g_runEvents = 0;

// Runs an item and waits for its final result, as the handlers do.
void RunAndRelease(const std::string& name) {
    tagKivoOmInspectionRequestMsg request{"", 3, 0, "{}"};
    name.copy(request.name, sizeof(request.name) - 1);
    tagKivoOmInspectionDataItem item{};
    g_resultMgr.GetResult(request, item);
    if (!HasStatus(item.result, "running")) {
        return;
    }
    g_resultMgr.AddRequesterMsg(name, {"client", "task"});
    while (g_resultMgr.UnLockResult(name, item) == 0) {
        std::this_thread::yield();
    }
}

void Report(const char* name, const char* status) {
    tagKivoOmInspectionResult result = support::Result(name, status, "reported");
    g_resultMgr.SetResult(result);
}

// The owner of "later": progress, told to the requesters, and the result.
void ReportUntil(const std::atomic<bool>& done) {
    std::vector<InspectClientMsg> requesters;
    while (!done) {
        Report("later", "running");
        g_resultMgr.GetRequesterMsg("later", requesters);
        Report("later", "success");
        std::this_thread::yield();
    }
}

void RunLater() {
    for (int round = 0; round < kRounds; ++round) {
        RunAndRelease("later");
    }
}

// An item whose time limit ends its runs, and whose status is reset meanwhile.
void RunLimited() {
    tagKivoOmInspectionDataItem item{};
    for (int round = 0; round < kRounds; ++round) {
        RunAndRelease("limited");
        g_resultMgr.SetResultStatic("limited", "idle");
        g_resultMgr.GetResultStatic("later", item);
    }
}

// Items that come and go while they are run.
void ComeAndGo(const std::string& name) {
    for (int round = 0; round < 2 * kRounds; ++round) {
        g_resultMgr.AddItem(name, kLimit, {"owner", "own_task"});
        std::this_thread::yield();
        g_resultMgr.DelItem(name);
    }
}

void ComeAndGoOne() {
    ComeAndGo("fleeting");
}

void ComeAndGoOther() {
    ComeAndGo("passing");
}

void RunFleeting() {
    for (int round = 0; round < kRounds; ++round) {
        RunAndRelease("fleeting");
        RunAndRelease("steady");
        RunAndRelease("passing");
    }
}

// Groups and requesters, and jobs that are stopped by others than themselves.
void RunGroups() {
    std::vector<InspectClientMsg> requesters;
    for (int round = 0; round < kRounds; ++round) {
        g_resultMgr.StartGroup("unknown_group");
        g_resultMgr.AddRequesterMsg("steady", {"client", "task"});
        g_resultMgr.GetRequesterMsg("steady", requesters);
        const unsigned int job = InspacetTask::CreateTask([](TaskData& /*task*/) {}, false);
        InspacetTask::StopTask(job, false);
        g_resultMgr.DelRequesterMsg("steady", {"client", "task"});
        g_resultMgr.StopGroup("unknown_group");
    }
}

}  // namespace

void support::bare::Second() {
    std::this_thread::yield();
}

tagKivoOmInspectionResult support::bare::Answer(std::string_view item) {
    return support::Result(item, item == "steady" ? "success" : "running", "answered");
}

void support::bare::Event(const OsMsgEvent& event) {
    if (event.eventId == 8) {
        ++g_runEvents;
        return;
    }
    uint32_t number = 0;
    std::memcpy(&number, event.data, sizeof(number));
    g_busyOrIdle.push_back(number);
}

void support::bare::Log(const char* /*text*/) {}

TEST(ResultMgrRealThreadsTest, RunsItemsAndGroupsSideBySideAndComesToRest) {
    g_resultMgr.Init();
    g_resultMgr.AddGroup({"unknown_group"});
    g_resultMgr.AddItem("steady", 0, {"owner", "own_task"});
    g_resultMgr.AddItem("later", 0, {"owner", "own_task"});
    g_resultMgr.AddItem("limited", kLimit, {"owner", "own_task"});

    const std::vector<void (*)()> bodies{RunLater,       RunLater,    RunLimited,  RunLimited, ComeAndGoOne,
                                         ComeAndGoOther, RunFleeting, RunFleeting, RunGroups,  RunGroups};
    std::latch start(static_cast<std::ptrdiff_t>(bodies.size()));
    std::atomic<bool> done{false};
    std::thread owner(ReportUntil, std::cref(done));
    std::vector<std::thread> threads;
    threads.reserve(bodies.size());
    for (void (*const body)() : bodies) {
        threads.emplace_back([body, &start] {
            start.arrive_and_wait();
            body();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    done = true;
    owner.join();
    for (const char* name : {"steady", "later", "limited"}) {
        g_resultMgr.DelItem(name);
    }
    EXPECT_TRUE(support::Eventually([] { return !InspacetTask::HasLiveJobs(); }));

    // Each run had a begin and an end, and the server was busy and idle by turns.
    EXPECT_GE(g_runEvents, static_cast<std::size_t>(kRounds));
    EXPECT_EQ(g_runEvents % 2, 0U);
    ASSERT_FALSE(g_busyOrIdle.empty());
    for (std::size_t i = 0; i < g_busyOrIdle.size(); ++i) {
        ASSERT_EQ(g_busyOrIdle[i], i % 2) << "at " << i;
    }
    EXPECT_EQ(g_busyOrIdle.back(), 1U);
}
