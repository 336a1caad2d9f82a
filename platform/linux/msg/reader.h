// Decides which of the process's threads reads the bus.
#pragma once

#include <systemd/sd-bus.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

#include "msg/unsent.h"
#include "msg/waiter.h"

namespace kivo::msg {

// A thread that waits, for its task's next message or for a reply, reads the bus itself. It is called the leader, and
// it hands what it reads for other threads to them. So a message normally reaches its thread without a switch between
// threads.
//
//  - There is at most one leader. A thread that begins to wait takes the lead from the standby or from a task's thread
//    that waits for a message, because the next message is most likely for the thread that came last. It does not take
//    the lead from a thread that waits for a reply.
//  - A leader that got what it waited for steps down. If another thread waits for a reply, that one leads at once. So
//    does a task's thread that waits for a message, if the leader was not a task's thread itself: such a thread may not
//    come back for long. Otherwise the lead stays empty for a moment (grace_), because a task's thread mostly comes
//    back soon.
//  - After that moment the standby, a thread of its own, takes the lead, so that somebody always reads: full queues,
//    peers that leave and requests to detach are noticed even while every task is busy. It sleeps otherwise.
//
// All functions but RequestStop must be called with the process's lock held; the lock is released while a thread polls.
class Reader {
public:
    using Clock = std::chrono::steady_clock;
    using Lock = std::unique_lock<std::mutex>;

    // What a waiting thread waits for.
    enum class Rank { kStandby, kTask, kReply };

    // onEnd is called, with the lock, when the connection is gone (true) or RequestStop was called (false); from then
    // on every done() given to Wait must hold.
    Reader(std::function<void(bool lost)> onEnd, Unsent& unsent);

    // From now on RequestStop has an effect.
    void Open();

    // Begins to read `bus`. False when there is no thread or descriptor to be had.
    bool Start(sd_bus* bus, std::mutex& mutex);

    // From now on the lead stays empty for half a millisecond at most: this process wants events without delay.
    void HurryUp() { grace_ = kShortGrace; }

    // Ends the standby, if it was started; nobody may be waiting.
    void Stop(Lock& lock);

    // Waits until done() holds or the deadline has passed; returns done(). The thread may read and dispatch.
    bool Wait(Lock& lock, Waiter& me, Rank rank, std::optional<Clock::time_point> deadline,
              const std::function<bool()>& done);

    // Makes every waiting thread check its done() again.
    void WakeAll();

    // Makes some thread look at the connection again, because something waits to be written, or was read but not
    // dispatched.
    void Kick();

    // Makes the standby call onEnd. Async-signal-safe.
    void RequestStop();

private:
    // A thread that waits. It lives on the thread's stack: waiting needs no memory.
    struct Waiting {
        Waiter& waiter;
        Rank rank;
        Waiting* earlier;
    };

    void StandbyMain(std::mutex& mutex);
    void TakeLead(Waiter& me, Rank rank);
    bool Dispatch();
    bool PollAsLeader(Lock& lock, Waiter& me, std::optional<Clock::time_point> deadline);
    void StepDown();
    void WakeStandby();

    // How long the lead may stay empty before the standby takes it: longer than most handlers run, and too short to be
    // noticed.
    static constexpr std::chrono::microseconds kGrace{10'000};
    static constexpr std::chrono::microseconds kShortGrace{500};

    std::function<void(bool)> onEnd_;
    Unsent& unsent_;
    sd_bus* bus_ = nullptr;
    Waiter* leader_ = nullptr;
    Rank leaderRank_ = Rank::kStandby;
    Waiting* latest_ = nullptr;  // the thread that came last, and through it all others; the leader included
    std::thread standby_;
    Waiter standbyWaiter_;
    bool armed_ = false;     // the standby watches whether somebody takes the lead
    bool stopping_ = false;  // the standby must end
    bool lost_ = false;      // the connection is gone: nobody reads it any more
    bool starved_ = false;   // the last attempt to read failed for want of memory
    uint64_t stepDowns_ = 0;
    std::chrono::microseconds grace_ = kGrace;
    std::atomic<bool> open_{false};  // these two are used by a signal handler, hence outside of the lock
    std::atomic<bool> stopRequested_{false};
};

}  // namespace kivo::msg
