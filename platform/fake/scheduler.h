// Turn taking and virtual time: which of the fake's threads runs, and when the clock jumps.
#pragma once

#include <pthread.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace kivo::fake {

struct Process;

/// The one lock of the fake. It guards all state; functions that take a Lock& expect it held and give it back held.
using Lock = std::unique_lock<std::mutex>;
Lock Hold();

/// Prints the text and aborts the test program: the test itself is wrong.
[[noreturn]] void Die(const std::string& text);

/// One of the threads that take turns.
struct Thread {
    Process* process{};
    std::string task;           // the platform task this thread runs, or empty
    bool counted{};             // shows in LiveThreads
    std::function<void()> run;  // empty for the thread that called Reset
    pthread_t id{};
    bool joinable{};
    std::condition_variable turn;

    // While blocked:
    const void* channel{};  // what wakes it early
    uint64_t until{};       // when it wakes by itself
    uint64_t since{};       // when it blocked
    bool timedOut{};
    const char* waitsFor{};
};

/// Moves the turn among the threads. All times are milliseconds since the program began, never set back.
class Scheduler {
public:
    static constexpr uint64_t kNever = std::numeric_limits<uint64_t>::max();

    static Scheduler& Get();

    /// Makes the calling thread the one that owns the test; it holds the turn from now on.
    void Adopt(Process& process);

    /// The calling thread, or null when it is none of the fake's.
    static Thread* Self();

    /// Starts a thread; it becomes ready and runs when the others block. 0 or an errno(3) number.
    uint32_t Spawn(Process& process, std::string task, bool counted, const pthread_attr_t* attributes,
                   std::function<void()> run);

    /// Blocks the calling thread until Wake(channel), or until the given time: false then.
    bool Wait(Lock& lock, const char* waitsFor, const void* channel, uint64_t until = kNever);

    /// Waits on `channel` until `done` holds; false when the time came first.
    template <typename Condition>
    bool WaitFor(Lock& lock, const char* waitsFor, const void* channel, uint64_t until, Condition done) {
        while (!done()) {
            if (!Wait(lock, waitsFor, channel, until)) {
                return done();
            }
        }
        return true;
    }

    void Wake(const void* channel);
    void WakeThreadsOf(const Process& process);

    /// Blocks the calling thread until no other can run without time passing.
    void Settle(Lock& lock);

    uint64_t Elapsed() const { return elapsed_; }
    size_t Live() const { return live_; }
    const void* LiveChannel() const { return &live_; }  // woken when a counted thread ends
    bool IsOwner(const Thread* thread) const { return thread == owner_.get(); }

private:
    static void* Start(void* thread);
    void End(Thread& me);
    void PassTurn(Lock& lock, Thread& me);
    void GiveTurnToNext();
    void Jump();
    template <typename Condition>
    void Unblock(Condition which);
    void Reap(Lock& lock);
    std::string Blocked() const;

    std::unique_ptr<Thread> owner_;
    std::vector<std::unique_ptr<Thread>> threads_;  // all but the owner
    std::deque<Thread*> ready_;
    std::deque<Thread*> settling_;
    std::vector<Thread*> blocked_;  // in the order in which they blocked
    std::vector<pthread_t> ended_;  // to be joined
    Thread* current_{};
    uint64_t elapsed_{};
    size_t live_{};
};

/// Lets virtual time pass for the calling thread. Ends early only when its process is killed.
void Sleep(Lock& lock, uint64_t ms);

}  // namespace kivo::fake
