// signalfd(2) makes the signals readable: no handler runs anywhere.
#include "common/end_signals.h"

#include <cerrno>
#include <csignal>
#include <system_error>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace ominspect {
namespace {

int OpenBlocked() {
    sigset_t set{};
    (void)sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        (void)sigaddset(&set, signal);
    }
    (void)pthread_sigmask(SIG_BLOCK, &set, nullptr);
    return signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
}

UniqueFd Checked(int fd, const char* what) {
    if (fd < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return UniqueFd(fd);
}

}  // namespace

EndSignals::EndSignals() : fd_(Checked(OpenBlocked(), "cannot wait for signals")) {}

int EndSignals::Count() {
    signalfd_siginfo signal{};
    while (read(fd_.Get(), &signal, sizeof signal) == static_cast<ssize_t>(sizeof signal)) {
        ++count_;
    }
    return count_;
}

Interrupt::Interrupt(int exitCode)
    : exitCode_(exitCode),
      over_(Checked(eventfd(0, EFD_CLOEXEC), "cannot create an event")),
      watcher_([this] { Watch(); }) {}

Interrupt::~Interrupt() {
    (void)eventfd_write(over_.Get(), 1);
    watcher_.join();
}

void Interrupt::Watch() {
    for (;;) {
        pollfd fds[] = {{signals_.Fd(), POLLIN, 0}, {over_.Get(), POLLIN, 0}};
        if (poll(fds, 2, -1) < 0) {
            continue;
        }
        if (fds[1].revents != 0) {
            return;
        }
        const bool isFirst = signals_.Count() == 1 && cancel_.request_stop();
        if (!isFirst) {
            _exit(exitCode_);
        }
    }
}

}  // namespace ominspect
