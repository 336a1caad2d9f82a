// Threads, locks, time and sleep (os_thread.h, os_lock.h, os_time.h, sleep(3)).
#include <cerrno>
#include <memory>
#include <vector>

#include "kivo/os_lock.h"
#include "kivo/os_thread.h"
#include "kivo/os_time.h"
#include "platform/clock.h"
#include "world/faults.h"
#include "world/journal.h"
#include "world/observer.h"

using namespace sim;

namespace {

constexpr uint64_t kStartTime = 1700000000000;  // ms

uint64_t g_clockOffset = kStartTime;

// Its own address is the channel on which threads wait for it.
struct LockState {
    std::vector<const Thread*> readers;
    const Thread* writer{};
};

LockState* StateOf(const OsRwLock* lock) {
    return lock == nullptr ? nullptr : static_cast<LockState*>(lock->impl);
}

void SleepSeconds(uint32_t seconds) {
    const InPlatform platform;
    Point();
    if (!Self()->locks.empty()) {
        Violation("sleeps with a lock held");
    }
    (void)Wait("time to pass", nullptr, Now() + seconds * kSecond);
    if (Observer* const observer = TheObserver()) {
        observer->OnSleep(*Self(), seconds);
    }
}

void Tell(Observer::Hold hold) {
    if (Observer* const observer = TheObserver()) {
        observer->OnHold(*Self(), hold);
    }
}

}  // namespace

uint64_t sim::SystemMillis() {
    return Now() / kMilli + g_clockOffset;
}

void sim::SetClock(uint64_t ms) {
    g_clockOffset = ms - Now() / kMilli;
}

uint32_t OsPthreadCreate(OsThread* thread, const void* /*attributes*/, OsThreadEntry entry, void* argument) {
    const InPlatform platform;
    Point();
    if (thread == nullptr || entry == nullptr) {
        return EINVAL;
    }
    Process& process = CurrentProcess();
    uint32_t result = 0;
    Thread* created = nullptr;
    if (IsDue(Fault::kNoThread)) {
        result = EAGAIN;
    } else {
        created = &Spawn(process, "thread", [entry, argument] { entry(argument); });
        *thread = ++process.lastHandle;
    }
    if (Observer* const observer = TheObserver()) {
        observer->OnCreate(*Self(), created, argument, result);
    }
    return result;
}

uint32_t OsPthreadDetach(OsThread /*thread*/) {
    return 0;
}

uint32_t OsSleep(uint32_t seconds) {
    SleepSeconds(seconds);
    return 0;
}

extern "C" __attribute__((visibility("default"))) unsigned sleep(unsigned seconds) {
    SleepSeconds(seconds);
    return 0;
}

// No thread loses its turn here: the C++ library may hold locks of its own around it, which nobody else can wait for.
uint64_t OsGetSystemTime(void) {
    const InPlatform platform;
    const uint64_t time = SystemMillis();
    if (Observer* const observer = TheObserver()) {
        observer->OnTime(*Self(), time);
    }
    return time;
}

uint32_t OsRwLockInit(OsRwLock* lock, uint32_t shared) {
    const InPlatform platform;
    if (lock == nullptr || shared != 0) {
        return EINVAL;
    }
    lock->impl = std::make_unique<LockState>().release();
    return 0;
}

uint32_t OsRwLockRdLock(OsRwLock* lock) {
    const InPlatform platform;
    Point();
    LockState* const state = StateOf(lock);
    if (state == nullptr) {
        return EINVAL;
    }
    WaitFor("a read lock", state, kNever, [state] { return state->writer == nullptr; });
    state->readers.push_back(Self());
    Self()->locks.push_back(state);
    Tell(Observer::Hold::kRead);
    return 0;
}

uint32_t OsRwLockWrLock(OsRwLock* lock) {
    const InPlatform platform;
    Point();
    LockState* const state = StateOf(lock);
    if (state == nullptr) {
        return EINVAL;
    }
    if (state->writer == Self()) {
        return EDEADLK;
    }
    WaitFor("a write lock", state, kNever, [state] { return state->writer == nullptr && state->readers.empty(); });
    state->writer = Self();
    Self()->locks.push_back(state);
    Tell(Observer::Hold::kWrite);
    return 0;
}

uint32_t OsRwLockUnLock(OsRwLock* lock) {
    const InPlatform platform;
    LockState* const state = StateOf(lock);
    if (state == nullptr) {
        return EINVAL;
    }
    Tell(Observer::Hold::kRelease);
    if (std::erase(Self()->locks, state) == 0) {
        Violation("gives back a reader-writer lock that it does not hold");
    }
    if (state->writer == Self()) {
        state->writer = nullptr;
    } else {
        std::erase(state->readers, Self());
    }
    Wake(state);
    return 0;
}

uint32_t OsRwLockDestroy(OsRwLock* lock) {
    const InPlatform platform;
    const std::unique_ptr<LockState> state(StateOf(lock));
    if (state == nullptr) {
        return EINVAL;
    }
    if (state->writer != nullptr || !state->readers.empty()) {
        Violation("a reader-writer lock is destroyed while it is held");
    }
    lock->impl = nullptr;
    return 0;
}
