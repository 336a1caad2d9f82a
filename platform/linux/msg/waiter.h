// A way to wake a thread that polls.
#pragma once

#include <atomic>

namespace kivo::msg {

// One per thread that ever waits: an eventfd(2) that the thread polls, alone or together with the bus. A wake-up that
// comes before the thread polls is kept.
class Waiter {
public:
    Waiter() { (void)Open(); }
    ~Waiter();
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;
    Waiter(Waiter&&) = delete;
    Waiter& operator=(Waiter&&) = delete;

    // Gets a descriptor, unless it has one. False when the process has none left; it may have one later.
    [[nodiscard]] bool Open();

    [[nodiscard]] bool Valid() const { return fd_ >= 0; }
    [[nodiscard]] int Fd() const { return fd_; }

    // Async-signal-safe; any thread.
    void Wake() const;

    // The same, but nothing when it is the calling thread's own: a thread that runs needs no waking, as it looks again
    // for what it waits for before it polls.
    void WakeOther() const;

    // Takes back all wake-ups so far.
    void Drain() const;

    // The calling thread's own; not Valid() when there was no descriptor for it. Each call tries again.
    static Waiter& OfThisThread();

private:
    std::atomic<int> fd_{-1};  // a signal handler may wake while it is opened
};

}  // namespace kivo::msg
