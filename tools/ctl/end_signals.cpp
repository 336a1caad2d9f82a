// Ctrl-C, SIGTERM and the end of the terminal, readable as a descriptor: signalfd(2).
#include "end_signals.h"

#include <csignal>

#include <sys/signalfd.h>
#include <unistd.h>

namespace ominspect::ctl {

EndSignals::EndSignals() {
    sigset_t set{};
    (void)sigemptyset(&set);
    (void)sigaddset(&set, SIGINT);
    (void)sigaddset(&set, SIGTERM);
    (void)sigaddset(&set, SIGHUP);
    (void)pthread_sigmask(SIG_BLOCK, &set, nullptr);
    fd_ = signalfd(-1, &set, SFD_CLOEXEC);
}

EndSignals::~EndSignals() {
    (void)close(fd_);
}

void EndSignals::Take() const {
    signalfd_siginfo taken{};
    (void)!read(fd_, &taken, sizeof taken);
}

}  // namespace ominspect::ctl
