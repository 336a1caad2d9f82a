// A library must not change what signals do in its process: SIGPIPE is held back in the calling thread only.
#include "common/standard_error.h"

#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <ctime>

namespace kivo {

namespace {

class HeldSigPipe {
public:
    HeldSigPipe() {
        sigemptyset(&sigPipe_);
        sigaddset(&sigPipe_, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        wasPending_ = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &sigPipe_, &before_);
    }
    ~HeldSigPipe() {
        // One that came for the write is taken away; it is pending for this thread.
        const timespec now{};
        while (!wasPending_ && sigtimedwait(&sigPipe_, nullptr, &now) < 0 && errno == EINTR) {
        }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    HeldSigPipe(const HeldSigPipe&) = delete;
    HeldSigPipe& operator=(const HeldSigPipe&) = delete;
    HeldSigPipe(HeldSigPipe&&) = delete;
    HeldSigPipe& operator=(HeldSigPipe&&) = delete;

private:
    sigset_t sigPipe_{};
    sigset_t before_{};
    bool wasPending_ = false;
};

}  // namespace

void WriteToStandardError(std::string_view line) {
    const HeldSigPipe held;
    char end = '\n';
    for (size_t done = 0; done <= line.size();) {
        std::array<iovec, 2> rest{{{const_cast<char*>(line.data()) + done, line.size() - done}, {&end, 1}}};
        const ssize_t written = writev(STDERR_FILENO, rest.data(), rest.size());
        if (written < 0 && errno != EINTR) {
            return;
        }
        done += written > 0 ? static_cast<size_t>(written) : 0;
    }
}

}  // namespace kivo
