// Threads (os_thread.h) and the C library's sleep, in virtual time.
#include "kivo/os_thread.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <set>
#include <string>

#include "fake/journal.h"
#include "fake/process.h"
#include "fake/scheduler.h"

using namespace kivo::fake;

namespace {

// The threads that were not detached yet.
std::set<OsThread>& Undetached() {
    static auto& threads = *new std::set<OsThread>;
    return threads;
}

OsThread g_lastThread = 0;

void SleepSeconds(uint32_t seconds) {
    if (Scheduler::Self() != nullptr) {
        Lock lock = Hold();
        Sleep(lock, uint64_t{seconds} * 1000);
        return;
    }
    timespec left{.tv_sec = static_cast<time_t>(seconds), .tv_nsec = 0};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

}  // namespace

uint32_t OsPthreadCreate(OsThread* thread, const void* attributes, OsThreadEntry entry, void* argument) {
    const Lock lock = Hold();
    if (const auto code = Failure(lock, "OsPthreadCreate")) {
        return *code;
    }
    if (thread == nullptr || entry == nullptr) {
        return EINVAL;
    }
    const uint32_t error =
        Scheduler::Get().Spawn(CurrentProcess(), {}, true, static_cast<const pthread_attr_t*>(attributes),
                               [entry, argument] { entry(argument); });
    if (error == 0) {
        *thread = ++g_lastThread;
        Undetached().insert(*thread);
    }
    return error;
}

uint32_t OsPthreadDetach(OsThread thread) {
    const Lock lock = Hold();
    if (const auto code = Failure(lock, "OsPthreadDetach")) {
        return *code;
    }
    if (Undetached().erase(thread) == 0) {
        return ESRCH;
    }
    RecordCall(lock, "OsPthreadDetach");
    return 0;
}

uint32_t OsSleep(uint32_t seconds) {
    SleepSeconds(seconds);
    return 0;
}

// Code that is linked with the fake sleeps in virtual time; threads that the fake does not know really sleep.
extern "C" unsigned sleep(unsigned seconds) {
    SleepSeconds(seconds);
    return 0;
}
