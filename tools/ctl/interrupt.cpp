// Ctrl-C as the cancellation of a running command.
#include "interrupt.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "exit_code.h"

namespace ominspect::ctl {

Interrupt::Interrupt() : over_(eventfd(0, EFD_CLOEXEC)), watcher_([this] { Watch(); }) {}

Interrupt::~Interrupt() {
    (void)eventfd_write(over_, 1);
    watcher_.join();
    (void)close(over_);
}

void Interrupt::Watch() const {
    for (;;) {
        pollfd fds[] = {{signals_.Fd(), POLLIN, 0}, {over_, POLLIN, 0}};
        if (poll(fds, 2, -1) < 0) {
            continue;
        }
        if (fds[1].revents != 0) {
            return;
        }
        signals_.Take();
        if (!cancel_.request_stop()) {
            _exit(kInterrupted);
        }
    }
}

}  // namespace ominspect::ctl
