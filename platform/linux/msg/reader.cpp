// Threads poll without the lock; whoever holds the lead also polls the socket of the bus.
#include "msg/reader.h"

#include <poll.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <system_error>
#include <utility>

#include "msg/log.h"
#include "msg/task_thread.h"

namespace kivo::msg {

namespace {

// How long a thread waits before it tries again to read the bus when there was no memory.
constexpr std::chrono::milliseconds kMemoryPause{10};

// Messages dispatched in one go. In a flood, other threads must still get the lock, and deadlines must be checked.
constexpr int kBatch = 64;

using PollTimeout = std::optional<std::chrono::nanoseconds>;

PollTimeout Until(std::optional<Reader::Clock::time_point> deadline) {
    if (!deadline) {
        return std::nullopt;
    }
    return std::max<std::chrono::nanoseconds>(*deadline - Reader::Clock::now(), std::chrono::nanoseconds::zero());
}

void Poll(pollfd* fds, nfds_t count, PollTimeout timeout) {
    timespec limit{};
    if (timeout) {
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(*timeout);
        limit.tv_sec = seconds.count();
        limit.tv_nsec = static_cast<long>((*timeout - seconds).count());
    }
    ppoll(fds, count, timeout ? &limit : nullptr, nullptr);
}

void PollAlone(Reader::Lock& lock, Waiter& me, PollTimeout timeout) {
    lock.unlock();
    pollfd fd{me.Fd(), POLLIN, 0};
    Poll(&fd, 1, timeout);
    me.Drain();
    lock.lock();
}

}  // namespace

Reader::Reader(std::function<void(bool)> onEnd, Unsent& unsent) : onEnd_(std::move(onEnd)), unsent_(unsent) {}

void Reader::Open() {
    stopRequested_ = false;
    open_ = true;
}

bool Reader::Start(sd_bus* bus, std::mutex& mutex) {
    bus_ = bus;
    lost_ = false;
    stopping_ = false;
    grace_ = kGrace;
    armed_ = true;  // nobody leads yet
    if (!standbyWaiter_.Open()) {
        return false;
    }
    try {
        standby_ = std::thread([this, &mutex] { StandbyMain(mutex); });
        pthread_setname_np(standby_.native_handle(), "kivo_standby");
    } catch (const std::system_error&) {
        return false;
    }
    return true;
}

void Reader::Stop(Lock& lock) {
    open_ = false;
    stopping_ = true;
    standbyWaiter_.Wake();
    lock.unlock();
    if (standby_.joinable()) {
        standby_.join();
    }
    lock.lock();
    bus_ = nullptr;
    leader_ = nullptr;
}

void Reader::RequestStop() {
    if (!open_) {
        return;
    }
    stopRequested_ = true;
    standbyWaiter_.Wake();
}

void Reader::TakeLead(Waiter& me, Rank rank) {
    if (leader_ != nullptr && leader_ != &me) {
        leader_->Wake();
    }
    leader_ = &me;
    leaderRank_ = rank;
}

bool Reader::Wait(Lock& lock, Waiter& me, Rank rank, std::optional<Clock::time_point> deadline,
                  const std::function<bool()>& done) {
    Waiting entry{me, rank, latest_};
    latest_ = &entry;
    if (leader_ == nullptr || leaderRank_ != Rank::kReply) {
        TakeLead(me, rank);
    }
    // A task whose handler has just returned, while messages wait in its queue, looks whether more have come: in a
    // flood they must be counted or refused here instead of piling up in the bus daemon, where everybody would queue
    // behind them.
    if (leader_ == &me && done()) {
        (void)Dispatch();
    }
    while (!done() && (!deadline || Clock::now() < *deadline)) {
        if (leader_ == nullptr) {
            TakeLead(me, rank);
        }
        if (leader_ != &me) {
            PollAlone(lock, me, Until(deadline));
            continue;
        }
        if (PollAsLeader(lock, me, deadline) && leader_ == &me && !Dispatch()) {
            PollAlone(lock, me, kMemoryPause);
        }
    }
    Waiting** link = &latest_;
    while (*link != &entry) {
        link = &(*link)->earlier;
    }
    *link = entry.earlier;
    if (leader_ == &me) {
        StepDown();
    }
    return done();
}

// Dispatches what has come, a batch at most. False when there was no memory for it: the connection is still good, and
// what it holds can be read later.
bool Reader::Dispatch() {
    if (bus_ == nullptr || lost_) {
        return true;
    }
    int result = 1;
    for (int count = 0; result > 0 && count < kBatch; ++count) {
        result = sd_bus_process(bus_, nullptr);
        unsent_.Look(bus_);
    }
    const bool starved = result == -ENOMEM || result == -ENOBUFS;
    if (starved && !starved_) {
        Log(kLogWarning, "no memory to read the bus; it is tried again");
    } else if (result < 0 && !starved) {
        Log(kLogError, "the connection to the bus is lost: %s", strerrordesc_np(-result));
        lost_ = true;
        onEnd_(true);
    }
    starved_ = starved;
    return !starved;
}

// Whether there is something to dispatch. Does not wait when it has been read already, or when the connection is
// closed, which dispatching finds out.
bool Reader::PollAsLeader(Lock& lock, Waiter& me, std::optional<Clock::time_point> deadline) {
    const int events = sd_bus_get_events(bus_);
    PollTimeout timeout = Until(deadline);
    bool ready = events < 0;
    uint64_t due = UINT64_MAX;  // microseconds, CLOCK_MONOTONIC; 0 when a message has been read already
    if (sd_bus_get_timeout(bus_, &due) >= 0 && due != UINT64_MAX) {
        const std::chrono::nanoseconds left = std::chrono::microseconds(due) - Clock::now().time_since_epoch();
        ready = ready || left <= std::chrono::nanoseconds::zero();
        timeout = timeout ? std::min(*timeout, left) : left;
    }
    if (ready) {
        timeout = std::chrono::nanoseconds::zero();  // others get the lock all the same
    }
    std::array<pollfd, 2> fds{
        {{me.Fd(), POLLIN, 0}, {sd_bus_get_fd(bus_), static_cast<short>(events < 0 ? POLLIN : events), 0}}};
    lock.unlock();
    Poll(fds.data(), fds.size(), timeout);
    if (fds[0].revents != 0) {
        me.Drain();
    }
    lock.lock();
    return ready || fds[1].revents != 0;
}

void Reader::StepDown() {
    leader_ = nullptr;
    ++stepDowns_;
    const Waiting* next = latest_;
    for (const Waiting* each = latest_; each != nullptr; each = each->earlier) {
        next = each->rank > next->rank ? each : next;
    }
    const Rank lowest = TaskThreadScope::IsHere() ? Rank::kReply : Rank::kTask;
    if (next == nullptr || next->rank < lowest) {
        WakeStandby();
        return;
    }
    leader_ = &next->waiter;
    leaderRank_ = next->rank;
    leader_->Wake();
}

void Reader::WakeAll() {
    for (const Waiting* each = latest_; each != nullptr; each = each->earlier) {
        each->waiter.Wake();
    }
}

void Reader::WakeStandby() {
    if (armed_) {
        return;
    }
    armed_ = true;
    standbyWaiter_.Wake();
}

void Reader::Kick() {
    if (leader_ != nullptr) {
        leader_->Wake();
    } else {
        WakeStandby();
    }
}

void Reader::StandbyMain(std::mutex& mutex) {
    Lock lock(mutex);
    Waiter& me = standbyWaiter_;
    while (!stopping_) {
        if (stopRequested_.exchange(false)) {
            onEnd_(false);
        }
        if (!armed_ || lost_) {
            PollAlone(lock, me, std::nullopt);
            continue;
        }
        const uint64_t seen = stepDowns_;
        PollAlone(lock, me, grace_);
        if (leader_ == nullptr && stepDowns_ == seen) {
            Wait(lock, me, Rank::kStandby, std::nullopt,
                 [&] { return leader_ != &me || stopping_ || lost_ || stopRequested_; });
        }
        armed_ = leader_ == nullptr;
    }
}

}  // namespace kivo::msg
