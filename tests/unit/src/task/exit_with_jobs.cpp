// The end of a process in which background jobs may still run: exit_with_jobs CASE. Ends with 0 when all was as it has
// to be.
//
// Main returns; what is left to look at happens after the job table and the result table have been destroyed, in the
// destructor of an object that was made before both. It lets the jobs go on only then.
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "base/log.h"
#include "base/serving.h"
#include "kivo/os_lock.h"
#include "result/result_mgr.h"
#include "support/bare_platform.h"
#include "support/eventually.h"
#include "support/records.h"
#include "task/inspacet_task.h"

/// Knows where the lock is.
class InspacetTaskPeer {
public:
    static const pthread_mutex_t* Lock() { return InspacetTask::m_tableLock.native_handle(); }
};

namespace {

enum class Case { kLiveJob, kTimeLimit, kNoJob, kServing };

constinit Case g_case = Case::kNoJob;
constinit std::atomic<bool> g_jobRuns{false};
constinit std::atomic<bool> g_tablesGone{false};
constinit std::atomic<int> g_jobCalls{0};     // of the live job, after the tables are gone
constinit std::atomic<int> g_refusals{0};     // log lines that a job was refused
constinit std::atomic<int> g_timeouts{0};     // log lines that a time limit was reached
constinit thread_local bool t_exits = false;  // the main thread, once main has returned
constinit std::atomic<int> g_locked{0};       // how often it took the job table's lock since
constinit std::atomic<int> g_destroyed{0};    // registries' locks
constinit std::atomic<int> g_served{0};       // runs by the server's task, after the tables are gone

void Expect(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "not so: %s\n", what);
        _exit(EXIT_FAILURE);
    }
}

// Made first, so destroyed last.
struct Last {
    ~Last() {
        Expect(g_locked == 1, "the job table is destroyed under its lock");
        g_tablesGone = true;
        g_tablesGone.notify_all();
        Expect(support::Eventually([] { return !InspacetTask::HasLiveJobs(); }), "the jobs end");
        Expect(g_jobCalls == (g_case == Case::kLiveJob ? 100 : 0), "the live job made all its calls");
        Expect(g_refusals == (g_case == Case::kLiveJob ? 100 : 0), "each refused job was logged");
        Expect(g_timeouts == (g_case == Case::kTimeLimit ? 1 : 0), "the time limit was noted in the table");
        Expect(g_destroyed == (g_case == Case::kNoJob ? 1 : 0), "the result table was destroyed if nothing used it");
        while (g_case == Case::kServing && Serving::IsUnderWay()) {
            usleep(1000);
        }
        Expect(g_served == (g_case == Case::kServing ? 100 : 0), "the server's task handled its messages");
    }
};
[[gnu::init_priority(101)]] const Last g_last;

void CallAll(TaskData& task) {
    const unsigned int id = task.taskId;
    Expect(InspacetTask::StopTask(id, true) == 1, "there is no job to stop any more");
    Expect(InspacetTask::CreateTask([](TaskData& /*task*/) {}, false) == 0, "no job is taken any more");
    InspacetTask::RemoveTask(id);
    InspectModuleLog(KIVO_OM_LOG_INFO, "test", 0, __LINE__, "call %d", ++g_jobCalls);
}

// A job that looks at its stop flag, and that goes on when the table is gone.
void LiveJob(TaskData& task, const std::string& own) {
    g_jobRuns = true;
    g_jobRuns.notify_all();
    while (!task.stopFlag && !g_tablesGone) {
        (void)InspacetTask::StopTask(0, true);  // reads the table, also while it is being destroyed
        usleep(100);
    }
    for (int call = 0; call < 100; ++call) {
        CallAll(task);
    }
    Expect(!task.stopFlag, "jobs are not stopped when the process exits");
    Expect(own == std::string(100, 'x'), "the job has what it was made with");
}

void Run(const char* name) {
    g_resultMgr.Init();
    g_resultMgr.AddItem(name, 1000, {"owner", "own_task"});
    tagKivoOmInspectionRequestMsg request{"", 3, 0, "{}"};
    std::strncpy(request.name, name, sizeof(request.name) - 1);
    tagKivoOmInspectionDataItem item{};
    g_resultMgr.GetResult(request, item);
}

// The thread of the server's task in a host process: it is in the middle of its messages when the host ends.
void* Serve(void* /*argument*/) {
    const Serving serving;
    Run("at_once");
    g_jobRuns = true;
    g_jobRuns.notify_all();
    g_tablesGone.wait(false);
    for (int run = 0; run < 100; ++run) {
        tagKivoOmInspectionRequestMsg request{"at_once", 3, 0, "{}"};
        tagKivoOmInspectionDataItem item{};
        g_resultMgr.GetResult(request, item);
        g_served += std::strcmp(item.result.status, "success") == 0 ? 1 : 0;
    }
    return nullptr;
}

}  // namespace

extern "C" {

int __real_pthread_mutex_lock(pthread_mutex_t* mutex);  // NOLINT: the linker makes the names
[[gnu::visibility("default")]] int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {  // NOLINT
    if (t_exits && mutex == InspacetTaskPeer::Lock()) {
        ++g_locked;
    }
    return __real_pthread_mutex_lock(mutex);
}

uint32_t __real_OsRwLockDestroy(OsRwLock* lock);   // NOLINT: the linker makes the names
uint32_t __wrap_OsRwLockDestroy(OsRwLock* lock) {  // NOLINT
    ++g_destroyed;
    return __real_OsRwLockDestroy(lock);
}
}

// The wait timer's second is over when the tables are gone.
void support::bare::Second() {
    g_jobRuns = true;
    g_jobRuns.notify_all();
    g_tablesGone.wait(false);
}

tagKivoOmInspectionResult support::bare::Answer(std::string_view item) {
    return support::Result(item, item == "later" ? "running" : "success", "");
}

void support::bare::Event(const OsMsgEvent& /*event*/) {}

void support::bare::Log(const char* text) {
    const std::string_view line(text);
    g_refusals += line == "createthread error" ? 1 : 0;
    g_timeouts += line == "timeout wait[later]" ? 1 : 0;
}

int main(int argc, char** argv) {
    const std::string_view name(argc == 2 ? argv[1] : "");
    if (name == "live_job") {
        g_case = Case::kLiveJob;
        Expect(
            InspacetTask::CreateTask([own = std::string(100, 'x')](TaskData& task) { LiveJob(task, own); }, false) != 0,
            "a job is made");
        g_jobRuns.wait(false);
    } else if (name == "time_limit") {
        g_case = Case::kTimeLimit;
        Run("later");
        g_jobRuns.wait(false);
    } else if (name == "serving") {
        g_case = Case::kServing;
        pthread_t thread{};
        Expect(pthread_create(&thread, nullptr, Serve, nullptr) == 0 && pthread_detach(thread) == 0,
               "a thread is made");
        g_jobRuns.wait(false);
    } else if (name == "no_job") {
        Run("at_once");
    } else {
        std::fprintf(stderr, "usage: exit_with_jobs live_job | time_limit | serving | no_job\n");
        return 2;
    }
    t_exits = true;
    return 0;
}
