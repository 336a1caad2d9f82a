// The command watch: prints the server's events as they happen.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <mutex>
#include <string>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "commands.h"
#include "common/end_signals.h"
#include "common/presence.h"
#include "history.h"
#include "ominspect/client/session.h"
#include "output.h"
#include "report.h"

namespace ominspect::ctl {
namespace {

using Clock = std::chrono::steady_clock;

// How long the end of the program may take when the output is stuck.
constexpr unsigned kStuckSeconds = 3;

// Prints the events of the session's thread, and what the waiting thread sees; tells the latter when it is over.
class Printer {
public:
    explicit Printer(const WatchOptions& options) : options_(options), over_(eventfd(0, EFD_CLOEXEC)) {}

    client::Events Events() {
        return {[this](const client::ItemResult& result) {
                    const auto now = std::chrono::system_clock::now();
                    history_.Add(result, now);
                    Print(options_.json ? RunEventJson(now, result) : RunEventLine(now, result));
                },
                [this](bool busy) {
                    const auto now = std::chrono::system_clock::now();
                    Print(options_.json ? BusyEventJson(now, busy) : BusyEventLine(now, busy));
                },
                [this] { Finish(kUnreachable); }};
    }

    void Server(bool present) {
        const auto now = std::chrono::system_clock::now();
        Print(options_.json ? ServerEventJson(now, present) : ServerEventLine(now, present));
    }

    // Readable once an exit code is there.
    int Fd() const { return over_.Get(); }
    ExitCode Code() const { return code_; }

    // The results that were seen. Only to be called when the session is over.
    History& Seen() { return history_; }

private:
    void Print(const std::string& line) {
        const std::lock_guard lock(mutex_);
        if (finished_) {
            return;
        }
        const bool written = std::printf("%s\n", line.c_str()) >= 0 && std::fflush(stdout) == 0;
        ++printed_;
        if (!written) {
            End(kFailed);
        } else if (printed_ == options_.count) {
            End(kPassed);
        }
    }

    void Finish(ExitCode code) {
        const std::lock_guard lock(mutex_);
        End(code);
    }

    void End(ExitCode code) {
        if (finished_) {
            return;
        }
        finished_ = true;
        code_ = code;
        (void)eventfd_write(over_.Get(), 1);
    }

    const WatchOptions& options_;
    const UniqueFd over_;
    std::mutex mutex_;  // guards `finished_` and `printed_`
    bool finished_ = false;
    std::uint64_t printed_ = 0;
    History history_;  // used by the session's thread only

    std::atomic<ExitCode> code_{kPassed};
};

// Waits for the printer, a signal or the end of the time limit.
ExitCode WaitForEnd(const WatchOptions& options, Printer& printer, Presence& presence, const EndSignals& signals) {
    constexpr std::chrono::milliseconds kLook{500};
    const Clock::time_point deadline = Clock::now() + options.limit;
    pollfd fds[] = {{printer.Fd(), POLLIN, 0}, {signals.Fd(), POLLIN, 0}};
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        const bool limited = options.limit.count() > 0;
        if (limited && left.count() <= 0) {
            return options.count > 0 ? kTimeLimit : kPassed;
        }
        const int ready = poll(fds, 2, static_cast<int>(limited ? std::min(left, kLook).count() : kLook.count()));
        if (ready < 0 && errno != EINTR) {
            return kUnreachable;
        }
        if (ready > 0) {
            return fds[0].revents != 0 ? printer.Code() : kPassed;
        }
        presence.Follow([&](bool present) { printer.Server(present); });
    }
}

}  // namespace

ExitCode Watch(const WatchOptions& options) {
    Printer printer(options);
    const EndSignals signals;  // before the session, whose threads inherit the mask
    auto session = client::Session::Open(printer.Events());
    if (!session) {
        return Fail(session.Failure(), options.json);
    }
    if (const auto error = (*session)->Subscribe()) {
        return Fail(*error, options.json);
    }
    Presence presence(**session, "ominspectctl");
    Complain("watching");
    presence.Begin();
    if (!presence.IsPresent()) {
        Complain(presence.AbsenceText() + "; waiting for it");  // no error: its events come once it starts
    }

    const ExitCode code = WaitForEnd(options, printer, presence, signals);
    (void)alarm(kStuckSeconds);
    if (code == kUnreachable) {
        Complain("the bus was lost");
    }
    if (const auto lost = (*session)->LostEvents(); lost > 0) {
        Complain(std::to_string(lost) + " events were lost");
    }
    session->reset();
    SaveHistory(printer.Seen());
    return code;
}

}  // namespace ominspect::ctl
