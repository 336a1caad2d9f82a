// What the code under test calls beside the platform: locks, condition variables, futexes, threads and clocks of the C
// library, and operators new and delete. The definitions here win, as the program comes first among the modules.
//
// The program has one thread of the operating system, so outside of the simulated threads there is nothing to lock.
#include <dlfcn.h>
#include <linux/futex.h>
#include <pthread.h>
#include <sys/single_threaded.h>
#include <sys/syscall.h>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <utility>

#include "platform/clock.h"
#include "world/faults.h"
#include "world/journal.h"
#include "world/observer.h"
#include "world/outcome.h"
#include "world/process.h"

using namespace sim;

#define SIM_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

// Only these are locks between the threads of a process; the C++ library has recursive ones for itself.
bool IsPlain(const pthread_mutex_t* mutex) {
    return mutex->__data.__kind == PTHREAD_MUTEX_TIMED_NP;
}

Micros Deadline(clockid_t clock, const timespec* when) {
    const auto wanted = static_cast<int64_t>(when->tv_sec) * 1000000 + (when->tv_nsec + 999) / 1000;
    const int64_t offset = clock == CLOCK_MONOTONIC ? 0 : static_cast<int64_t>(SystemMillis() * kMilli - Now());
    return wanted > offset ? static_cast<Micros>(wanted - offset) : 0;
}

int WaitCondition(pthread_cond_t* condition, pthread_mutex_t* mutex, Micros until) {
    pthread_mutex_unlock(mutex);
    bool woken = false;
    {
        const InPlatform platform;
        woken = Wait("a condition", condition, until);
    }
    pthread_mutex_lock(mutex);
    return woken ? 0 : ETIMEDOUT;
}

long Futex(const int* word, int operation, int value, bool hasLimit) {
    const InPlatform platform;
    switch (operation & FUTEX_CMD_MASK) {
        case FUTEX_WAIT:
            if (hasLimit) {
                break;
            }
            if (*word != value) {
                errno = EAGAIN;
                return -1;
            }
            if (CurrentProcess().kind == "requester") {
                Reached("client: waited for the cancelling thread");
            }
            (void)Wait("a futex", word);
            return 0;
        case FUTEX_WAKE:
            Wake(word);
            return 0;
        default:
            break;
    }
    Violation("the simulator itself: no futex operation " + std::to_string(operation));
}

// Stands before every block; the sizes keep what follows aligned.
struct alignas(16) Header {
    Process* process;
    size_t size;
};

constexpr unsigned char kGone = 0xdd;

bool MustFail(Process& process) {
    if (process.failAllocationIn == 0 || --process.failAllocationIn != 0) {
        return false;
    }
    const InPlatform platform;
    process.ranOutOfMemory = true;
    Count(Fault::kNoMemory);
    return true;
}

// Blocks come and go all the time, and there is one thread of the operating system: a list for each size of small ones
// is much quicker than malloc(3). They stay with the run, which ends soon.
constexpr size_t kGranule = 32;
constexpr size_t kSmall = 1024;
constexpr size_t kChunk = size_t{64} * 1024;

struct Spare {
    Spare* next;
};
Spare* g_free[kSmall / kGranule + 1];
char* g_chunk = nullptr;
size_t g_chunkLeft = 0;

size_t GranulesOf(size_t size) {
    return (sizeof(Header) + size + kGranule - 1) / kGranule;
}

void* TakeRaw(size_t size) {
    const size_t granules = GranulesOf(size);
    if (granules > kSmall / kGranule) {
        return std::malloc(sizeof(Header) + size);
    }
    if (Spare* const first = g_free[granules]) {
        g_free[granules] = first->next;
        return first;
    }
    const size_t bytes = granules * kGranule;
    if (g_chunkLeft < bytes) {
        g_chunk = static_cast<char*>(std::aligned_alloc(kGranule, kChunk));
        if (g_chunk == nullptr) {
            return nullptr;
        }
        g_chunkLeft = kChunk;
    }
    g_chunkLeft -= bytes;
    return std::exchange(g_chunk, g_chunk + bytes);
}

void GiveRaw(Header* header) {
    const size_t granules = GranulesOf(header->size);
    if (granules > kSmall / kGranule) {
        std::free(header);
    } else {
        g_free[granules] = new (header) Spare{g_free[granules]};
    }
}

void* Allocate(size_t size) {
    Thread* const me = Self();
    Process* const process = me != nullptr && me->inPlatform == 0 ? me->process : nullptr;
    if (process != nullptr && MustFail(*process)) {
        return nullptr;
    }
    auto* const header = static_cast<Header*>(TakeRaw(size));
    if (header == nullptr) {
        return nullptr;
    }
    header->process = process;
    header->size = size;
    if (process != nullptr) {
        ++process->blocks;
    }
    return header + 1;
}

// The last blocks of the processes that were freed: they are not handed out again at once, so that whoever still uses
// them sees what cannot be.
constexpr size_t kKept = 256;
Header* g_kept[kKept];
size_t g_nextKept = 0;

void Free(void* block) {
    if (block == nullptr) {
        return;
    }
    auto* const header = static_cast<Header*>(block) - 1;
    if (header->process == nullptr) {
        GiveRaw(header);
        return;
    }
    --header->process->blocks;
    std::memset(block, kGone, header->size);
    if (Header* const last = std::exchange(g_kept[g_nextKept], header)) {
        GiveRaw(last);
    }
    g_nextKept = (g_nextKept + 1) % kKept;
}

void* AllocateOrThrow(size_t size) {
    void* const block = Allocate(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void* AllocateOrNull(size_t size) {
    return Allocate(size);
}

}  // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library has its own

SIM_EXPORT int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    Thread* const me = Self();
    if (me == nullptr || !IsPlain(mutex)) {
        return 0;
    }
    const bool byPlatform = me->inPlatform != 0;
    const InPlatform platform;
    if (!byPlatform) {
        Point();
    }
    WaitFor("a lock", mutex, kNever, [mutex] { return mutex->__data.__lock == 0; });
    mutex->__data.__lock = 1;
    me->locks.push_back(mutex);
    if (Observer* const observer = TheObserver()) {
        observer->OnLock(*me, mutex);
    }
    return 0;
}

SIM_EXPORT int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept {
    if (Self() != nullptr && IsPlain(mutex) && mutex->__data.__lock != 0) {
        return EBUSY;
    }
    return pthread_mutex_lock(mutex);
}

SIM_EXPORT int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
    Thread* const me = Self();
    if (me == nullptr || !IsPlain(mutex)) {
        return 0;
    }
    const InPlatform platform;
    if (Observer* const observer = TheObserver()) {
        observer->OnUnlock(*me, mutex);
    }
    if (std::erase(me->locks, mutex) == 0) {
        Violation("gives back a lock that it does not hold");
    }
    mutex->__data.__lock = 0;
    Wake(mutex);
    return 0;
}

SIM_EXPORT int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    return WaitCondition(condition, mutex, kNever);
}

SIM_EXPORT int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* when) {
    return WaitCondition(condition, mutex, Deadline(CLOCK_REALTIME, when));
}

SIM_EXPORT int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                                      const timespec* when) {
    return WaitCondition(condition, mutex, Deadline(clock, when));
}

SIM_EXPORT int pthread_cond_broadcast(pthread_cond_t* condition) noexcept {
    const InPlatform platform;
    Wake(condition);
    return 0;
}

SIM_EXPORT int pthread_cond_signal(pthread_cond_t* condition) noexcept {
    return pthread_cond_broadcast(condition);
}

SIM_EXPORT int pthread_cond_destroy(pthread_cond_t* /*condition*/) noexcept {
    return 0;
}

SIM_EXPORT int pthread_setname_np(pthread_t thread, const char* name) noexcept {
    const InPlatform platform;
    ForEachThread([thread, name](Thread& each) {
        if (each.number == thread) {
            each.name = name;
        }
    });
    return 0;
}

SIM_EXPORT pthread_t pthread_self() noexcept {
    const Thread* const me = Self();
    return me == nullptr ? 0 : me->number;
}

SIM_EXPORT int pthread_create(pthread_t* thread, const pthread_attr_t* /*attributes*/, void* (*entry)(void*),
                              void* argument) noexcept {
    const InPlatform platform;
    Point();
    __libc_single_threaded = 0;  // the C++ library leaves out what wakes other threads while there are none
    *thread = Spawn(CurrentProcess(), "thread", [entry, argument] { entry(argument); }).number;
    return 0;
}

SIM_EXPORT int pthread_join(pthread_t thread, void** /*result*/) {
    const InPlatform platform;
    WaitFor("a thread to end", &CurrentProcess(), kNever, [thread] { return !IsThread(thread); });
    return 0;
}

SIM_EXPORT int pthread_detach(pthread_t /*thread*/) noexcept {
    return 0;
}

SIM_EXPORT int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const Micros now = clock == CLOCK_REALTIME ? SystemMillis() * kMilli + Now() % kMilli : Now();
    time->tv_sec = static_cast<time_t>(now / kSecond);
    time->tv_nsec = static_cast<long>(now % kSecond * 1000);
    return 0;
}

// By a futex the C++ library waits for what has no lock: the destructor of a std::stop_callback for its function, which
// runs on another thread, or a static object for its initialisation.
SIM_EXPORT long syscall(long number, ...) noexcept {  // NOLINT(cert-dcl50-cpp): as the C library has it
    constexpr size_t kMost = 6;
    long arguments[kMost];
    std::va_list list;
    va_start(list, number);
    for (long& argument : arguments) {
        argument = va_arg(list, long);
    }
    va_end(list);
    if (number == SYS_futex && Self() != nullptr) {
        return Futex(reinterpret_cast<const int*>(arguments[0]), static_cast<int>(arguments[1]),
                     static_cast<int>(arguments[2]), arguments[3] != 0);
    }
    static auto* const real = reinterpret_cast<long (*)(long, ...)>(dlsym(RTLD_NEXT, "syscall"));
    return real(number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4], arguments[5]);
}

// NOLINTEND(readability-inconsistent-declaration-parameter-name)

void* operator new(size_t size) {
    return AllocateOrThrow(size);
}
void* operator new[](size_t size) {
    return AllocateOrThrow(size);
}
void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return AllocateOrNull(size);
}
void* operator new[](size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return AllocateOrNull(size);
}
void operator delete(void* block) noexcept {
    Free(block);
}
void operator delete[](void* block) noexcept {
    Free(block);
}
void operator delete(void* block, size_t /*size*/) noexcept {
    Free(block);
}
void operator delete[](void* block, size_t /*size*/) noexcept {
    Free(block);
}
void operator delete(void* block, const std::nothrow_t& /*tag*/) noexcept {
    Free(block);
}
void operator delete[](void* block, const std::nothrow_t& /*tag*/) noexcept {
    Free(block);
}
