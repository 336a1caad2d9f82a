// Ctrl-C, SIGTERM and the end of the terminal: as a descriptor, or as a cancellation.
#pragma once

#include <stop_token>
#include <thread>

#include "common/fd.h"

namespace ominspect {

// Blocks SIGINT, SIGTERM and SIGHUP in this thread and in those that it starts later. They stay blocked, since the
// program ends with what it was made for. Made before any other thread; throws std::system_error.
class EndSignals {
public:
    EndSignals();

    // Readable while one of them was sent and not taken.
    int Fd() const { return fd_.Get(); }

    // Takes those that came; how many came so far. Never waits. One thread at a time.
    int Count();

private:
    const UniqueFd fd_;
    int count_ = 0;
};

// Cancels with the first of these signals; a second one ends the program at once with `exitCode`. Made before any other
// thread; throws std::system_error.
class Interrupt {
public:
    explicit Interrupt(int exitCode);
    ~Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    // Cancels as a signal does.
    void Cancel() const { (void)cancel_.request_stop(); }

    std::stop_token Token() const { return cancel_.get_token(); }

private:
    void Watch();

    const int exitCode_;
    EndSignals signals_;  // of the watcher
    mutable std::stop_source cancel_;
    const UniqueFd over_;
    std::thread watcher_;
};

}  // namespace ominspect
