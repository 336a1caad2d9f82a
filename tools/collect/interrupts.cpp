// How often the user has asked to end.
#include "interrupts.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace ominspect::collect {

int Interrupts::Count() {
    pollfd ready{fd_, POLLIN, 0};
    while (poll(&ready, 1, 0) > 0 && (ready.revents & POLLIN) != 0) {
        signalfd_siginfo signal{};
        if (read(fd_, &signal, sizeof signal) != static_cast<ssize_t>(sizeof signal)) {
            break;
        }
        ++count_;
    }
    return count_;
}

}  // namespace ominspect::collect
