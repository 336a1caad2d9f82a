// Reader-writer locks (os_lock.h): a thread that must wait hands its turn on.
#include "kivo/os_lock.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <thread>
#include <vector>

#include "fake/journal.h"
#include "fake/scheduler.h"

using namespace kivo::fake;

namespace {

// Its own address is the channel on which threads wait for it.
struct State {
    std::vector<std::thread::id> readers;
    std::thread::id writer;

    bool Written() const { return writer != std::thread::id(); }
    bool Free() const { return !Written() && readers.empty(); }
};

State* StateOf(const OsRwLock* lock) {
    return lock == nullptr ? nullptr : static_cast<State*>(lock->impl);
}

}  // namespace

uint32_t OsRwLockInit(struct OsRwLock* lock, uint32_t shared) {
    const Lock held = Hold();
    if (const auto code = Failure(held, "OsRwLockInit")) {
        return *code;
    }
    if (lock == nullptr || shared != 0) {
        return EINVAL;
    }
    lock->impl = std::make_unique<State>().release();
    return 0;
}

uint32_t OsRwLockRdLock(struct OsRwLock* lock) {
    Lock held = Hold();
    if (const auto code = Failure(held, "OsRwLockRdLock")) {
        return *code;
    }
    State* state = StateOf(lock);
    if (state == nullptr) {
        return EINVAL;
    }
    if (state->writer == std::this_thread::get_id()) {
        return EDEADLK;
    }
    Scheduler::Get().WaitFor(held, "a read lock", state, Scheduler::kNever, [state] { return !state->Written(); });
    state->readers.push_back(std::this_thread::get_id());
    return 0;
}

uint32_t OsRwLockWrLock(struct OsRwLock* lock) {
    Lock held = Hold();
    if (const auto code = Failure(held, "OsRwLockWrLock")) {
        return *code;
    }
    State* state = StateOf(lock);
    if (state == nullptr) {
        return EINVAL;
    }
    if (state->writer == std::this_thread::get_id()) {
        return EDEADLK;
    }
    Scheduler::Get().WaitFor(held, "a write lock", state, Scheduler::kNever, [state] { return state->Free(); });
    state->writer = std::this_thread::get_id();
    return 0;
}

uint32_t OsRwLockUnLock(struct OsRwLock* lock) {
    const Lock held = Hold();
    if (const auto code = Failure(held, "OsRwLockUnLock")) {
        return *code;
    }
    State* state = StateOf(lock);
    if (state == nullptr) {
        return EINVAL;
    }
    if (state->writer == std::this_thread::get_id()) {
        state->writer = {};
    } else {
        const auto reader = std::ranges::find(state->readers, std::this_thread::get_id());
        if (reader == state->readers.end()) {
            return EPERM;
        }
        state->readers.erase(reader);
    }
    Scheduler::Get().Wake(state);
    return 0;
}

uint32_t OsRwLockDestroy(struct OsRwLock* lock) {
    const Lock held = Hold();
    if (const auto code = Failure(held, "OsRwLockDestroy")) {
        return *code;
    }
    const std::unique_ptr<State> state(StateOf(lock));
    if (state == nullptr) {
        return EINVAL;
    }
    if (!state->Free()) {
        Die("OsRwLockDestroy: a thread holds the lock");
    }
    lock->impl = nullptr;
    return 0;
}
