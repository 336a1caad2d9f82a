// The command watch: prints the server's events as they happen.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <stop_token>
#include <thread>

#include <poll.h>
#include <unistd.h>

#include "commands.h"
#include "common/end_signals.h"
#include "common/pause.h"
#include "common/presence.h"
#include "ominspect/client/session.h"
#include "report.h"
#include "watch_printer.h"

namespace ominspect::ctl {
namespace {

using Clock = std::chrono::steady_clock;

// How long the end of the program may take when the output is stuck.
constexpr unsigned kStuckSeconds = 3;

// Waits for the printer, a signal or the end of the time limit.
ExitCode WaitForEnd(const WatchOptions& options, const WatchPrinter& printer, const EndSignals& signals) {
    constexpr std::chrono::milliseconds kLongestPoll = std::chrono::hours(1);  // more may not fit into an int
    const Clock::time_point deadline = Clock::now() + options.limit;
    pollfd fds[] = {{printer.Fd(), POLLIN, 0}, {signals.Fd(), POLLIN, 0}};
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        const bool limited = options.limit.count() > 0;
        if (limited && left.count() <= 0) {
            return options.count > 0 ? kTimeLimit : kPassed;
        }
        const int ready = poll(fds, 2, limited ? static_cast<int>(std::min(left, kLongestPoll).count()) : -1);
        if (ready < 0 && errno != EINTR) {
            return kUnreachable;
        }
        if (ready > 0) {
            return fds[0].revents != 0 ? printer.Code() : kPassed;
        }
    }
}

// Shows when the server comes and goes. On a thread of its own: while the output is stuck, so is this.
void FollowServer(const std::stop_token& over, Presence& presence, WatchPrinter& printer) {
    constexpr std::chrono::milliseconds kLook{500};
    while (Pause(kLook, over)) {
        presence.Follow([&](bool present) { printer.Server(present); });
    }
}

}  // namespace

ExitCode Watch(const WatchOptions& options) {
    WatchPrinter printer(options);
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
    std::jthread follower([&](const std::stop_token& over) { FollowServer(over, presence, printer); });

    const ExitCode code = WaitForEnd(options, printer, signals);
    (void)alarm(kStuckSeconds);
    if (code == kUnreachable) {
        Complain("the bus was lost");
    }
    if (const auto lost = (*session)->LostEvents(); lost > 0) {
        Complain(std::to_string(lost) + " events were lost");
    }
    follower = {};  // ends and joins it
    session->reset();
    SaveHistory(printer.Seen());
    return code;
}

}  // namespace ominspect::ctl
