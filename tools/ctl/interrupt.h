// Ctrl-C as the cancellation of a running command.
#pragma once

#include <stop_token>
#include <thread>

#include "end_signals.h"

namespace ominspect::ctl {

// The first SIGINT, SIGTERM or SIGHUP cancels; a second one ends the program at once with exit code 130. Made before
// any other thread.
class Interrupt {
public:
    Interrupt();
    ~Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    // Cancels as a signal does.
    void Cancel() const { (void)cancel_.request_stop(); }

    std::stop_token Token() const { return cancel_.get_token(); }

private:
    void Watch() const;

    const EndSignals signals_;
    mutable std::stop_source cancel_;
    const int over_;
    std::thread watcher_;
};

}  // namespace ominspect::ctl
