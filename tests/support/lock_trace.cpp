#include "support/lock_trace.h"

#include <pthread.h>

#include <algorithm>
#include <iterator>
#include <mutex>
#include <string_view>

#include "fake/scheduler.h"
#include "kivo/os_file.h"
#include "kivo/os_lock.h"
#include "kivo/os_msg.h"
#include "kivo/os_thread.h"
#include "kivo/os_timer.h"
#include "result/result_mgr.h"
#include "task/inspacet_task.h"

/// Knows where the locks are.
class ResultMgrPeer {
public:
    static const pthread_mutex_t* Lock() { return g_resultMgr.m_tableLock.native_handle(); }
};

class InspacetTaskPeer {
public:
    static const pthread_mutex_t* Lock() { return InspacetTask::m_tableLock.native_handle(); }
};

extern "C" int __real_pthread_mutex_lock(pthread_mutex_t* mutex);    // NOLINT: the linker makes the names
extern "C" int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);  // NOLINT

namespace {

// A lock that may be used in the functions that watch locks.
class Guard {
public:
    Guard() { __real_pthread_mutex_lock(&s_mutex); }
    ~Guard() { __real_pthread_mutex_unlock(&s_mutex); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

private:
    static inline pthread_mutex_t s_mutex = PTHREAD_MUTEX_INITIALIZER;
};

// Guarded by Guard. Locks are taken before and after a trace lives: what is needed for that has no constructor.
constinit bool g_traced = false;
const pthread_mutex_t* g_fakesLock = nullptr;

std::vector<std::string>& Trace() {
    static auto& lines = *new std::vector<std::string>;
    return lines;
}

// The locks that a thread holds, in the order in which they were taken; what lies beyond the last is not looked at.
struct Held {
    const void* lock;
    const char* name;
};
thread_local Held t_held[8];
thread_local std::size_t t_count = 0;

const char* NameOf(const pthread_mutex_t* mutex) {
    if (mutex == ResultMgrPeer::Lock()) {
        return "table";
    }
    return mutex == InspacetTaskPeer::Lock() ? "jobs" : "another";
}

void Step(std::string line) {
    const Guard guard;
    if (!g_traced) {
        return;
    }
    for (std::size_t i = 0; i < t_count; ++i) {
        line += std::string(i == 0 ? " under " : " and ") + t_held[i].name;
    }
    Trace().push_back(std::move(line));
}

bool Watched(const pthread_mutex_t* mutex) {
    const Guard guard;
    return g_traced && mutex != g_fakesLock;
}

void Take(const void* lock, const char* name) {
    if (t_count < std::size(t_held)) {
        t_held[t_count++] = {lock, name};
    }
}

void Give(const void* lock) {
    auto* const end = t_held + t_count;
    auto* const found = std::find_if(t_held, end, [lock](const Held& held) { return held.lock == lock; });
    if (found != end) {
        std::copy(found + 1, end, found);
        --t_count;
    }
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): the linker makes the names
extern "C" {

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (Watched(mutex)) {
        Step(NameOf(mutex));
        Take(mutex, NameOf(mutex));
    }
    return __real_pthread_mutex_lock(mutex);
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    Give(mutex);
    return __real_pthread_mutex_unlock(mutex);
}

uint32_t __real_OsRwLockInit(OsRwLock* lock, uint32_t shared);
uint32_t __wrap_OsRwLockInit(OsRwLock* lock, uint32_t shared) {
    Step("registry made for " + std::to_string(shared));
    return __real_OsRwLockInit(lock, shared);
}

uint32_t __real_OsRwLockRdLock(OsRwLock* lock);
uint32_t __wrap_OsRwLockRdLock(OsRwLock* lock) {
    Step("registry for reading");
    Take(lock, "registry");
    return __real_OsRwLockRdLock(lock);
}

uint32_t __real_OsRwLockWrLock(OsRwLock* lock);
uint32_t __wrap_OsRwLockWrLock(OsRwLock* lock) {
    Step("registry for writing");
    Take(lock, "registry");
    return __real_OsRwLockWrLock(lock);
}

uint32_t __real_OsRwLockUnLock(OsRwLock* lock);
uint32_t __wrap_OsRwLockUnLock(OsRwLock* lock) {
    Give(lock);
    return __real_OsRwLockUnLock(lock);
}

uint32_t __real_OsRwLockDestroy(OsRwLock* lock);
uint32_t __wrap_OsRwLockDestroy(OsRwLock* lock) {
    Step("registry destroyed");
    return __real_OsRwLockDestroy(lock);
}

uint32_t __real_OsMsgSynSend(const TagMsgBlock* msg, TagMsgBlock** resp, uint32_t timeoutMs);
uint32_t __wrap_OsMsgSynSend(const TagMsgBlock* msg, TagMsgBlock** resp, uint32_t timeoutMs) {
    Step("ask " + std::to_string(msg->msgId));
    return __real_OsMsgSynSend(msg, resp, timeoutMs);
}

uint32_t __real_OsMsgBroadcastEvent(const OsMsgEvent* event, uint32_t scope);
uint32_t __wrap_OsMsgBroadcastEvent(const OsMsgEvent* event, uint32_t scope) {
    Step("event " + std::to_string(event->eventId));
    return __real_OsMsgBroadcastEvent(event, scope);
}

uint32_t __real_OsPthreadCreate(OsThread* thread, const void* attributes, OsThreadEntry entry, void* argument);
uint32_t __wrap_OsPthreadCreate(OsThread* thread, const void* attributes, OsThreadEntry entry, void* argument) {
    Step("thread");
    return __real_OsPthreadCreate(thread, attributes, entry, argument);
}

uint32_t __real_OsTmrCreate(const OsTimerParam* param, OsTimerId* timer);
uint32_t __wrap_OsTmrCreate(const OsTimerParam* param, OsTimerId* timer) {
    Step("timer");
    return __real_OsTmrCreate(param, timer);
}

uint32_t __real_OsTmrDelete(OsTimerId timer);
uint32_t __wrap_OsTmrDelete(OsTimerId timer) {
    Step("timer off");
    return __real_OsTmrDelete(timer);
}

uint32_t __real_OsCopyFile(const char* src, const char* dst);
uint32_t __wrap_OsCopyFile(const char* src, const char* dst) {
    Step("copy");
    return __real_OsCopyFile(src, dst);
}
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

support::LockTrace::LockTrace() {
    const auto* const fakesLock = kivo::fake::Hold().mutex()->native_handle();
    const Guard guard;
    Trace().clear();
    g_fakesLock = fakesLock;
    g_traced = true;
}

support::LockTrace::~LockTrace() {
    const Guard guard;
    g_traced = false;
}

// NOLINTBEGIN(readability-convert-member-functions-to-static): there is a trace only while the object lives
std::vector<std::string> support::LockTrace::Lines() const {
    const Guard guard;
    return Trace();
}

long support::LockTrace::Count(const std::string& line) const {
    const Guard guard;
    return std::count(Trace().begin(), Trace().end(), line);
}

long support::LockTrace::CountFrom(const std::string& start) const {
    const Guard guard;
    return std::count_if(Trace().begin(), Trace().end(),
                         [&start](const std::string& line) { return line.starts_with(start); });
}

long support::LockTrace::CountUnder(const std::string& lock) const {
    const Guard guard;
    return std::count_if(Trace().begin(), Trace().end(),
                         [end = " under " + lock](const std::string& line) { return line.ends_with(end); });
}
// NOLINTEND(readability-convert-member-functions-to-static)
