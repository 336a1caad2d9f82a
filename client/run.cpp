// Waits for its turn, runs the item, and stops it if its result is not waited for any more.
#include "ominspect/client/run.h"

#include <string>

#include "waiting.h"

namespace ominspect::client {
namespace {

// The server keeps an ended run until each requester has its result, which takes up to a second. A run that it never
// releases is not waited for.
constexpr std::chrono::milliseconds kAskAgain{250};
constexpr int kMostHeld = 16;
// The time for the owner to stop an item and for the server to send the run's last result.
constexpr std::chrono::milliseconds kStopLimit{6000};

bool IsEndOfLimit(const Error& error) {
    return error.code == ErrorCode::kTimeLimit || error.code == ErrorCode::kCancelled;
}

// Stops an item that this session has started. The text says whether that worked.
std::string Stop(Session& session, const std::string& item, BackgroundRun& run) {
    const Limit limit(kStopLimit);
    const auto answer = session.Stop(item, limit);
    if (!answer) {
        const bool silent = answer.Failure().code == ErrorCode::kTimeLimit;
        return "the item could not be stopped: " + (silent ? "its owner does not answer" : answer.Failure().text);
    }
    // The server takes requests in order: if it has not begun the run by now, that request was lost. The news of the
    // beginning may take a moment longer, as it arrives on another thread.
    if (run.Origin() == RunOrigin::kUnknown) {
        const auto first = run.Next(kAskAgain);
        if (run.Origin() == RunOrigin::kUnknown) {
            return "the server has not begun the run";
        }
        if (first && first->status != "running") {
            return "the item was stopped";
        }
    }
    return run.Await(limit) ? "the item was stopped" : "the item was asked to stop, but still runs";
}

std::string GiveUp(Session& session, const std::string& item, BackgroundRun& run, bool leaveRunning) {
    if (run.Origin() == RunOrigin::kJoined) {
        return "another run of the item goes on";
    }
    if (!leaveRunning) {
        return Stop(session, item, run);
    }
    return run.Origin() == RunOrigin::kOwn ? "the item runs on" : "the server may begin the run yet";
}

}  // namespace

Result<RunOutcome> RunItem(Session& session, const Request& request, const RunOptions& options, const Limit& limit) {
    bool told = false;
    for (int held = 0;; ++held) {
        auto run = session.Start(request, limit);
        if (!run) {
            return run.Failure();
        }
        const auto tellOther = [&] {
            if (!told && options.onOther) {
                options.onOther();
            }
            told = true;
        };
        const auto result = run->Await(limit, [&](const ItemResult& running) {
            if (run->Origin() == RunOrigin::kJoined) {
                held = 0;
                tellOther();
            }
            if (options.onRunning) {
                options.onRunning(running);
            }
        });
        if (!result) {
            Error error = result.Failure();
            if (IsEndOfLimit(error) && KindOf(request) == RequestKind::kRun) {
                error.text += "; " + GiveUp(session, request.item, *run, options.leaveRunning);
            }
            return error;
        }
        const bool isOther = run->Origin() == RunOrigin::kJoined;
        if (isOther) {
            tellOther();
        }
        if (!isOther || options.join || held == kMostHeld) {
            return RunOutcome{*result, isOther};
        }
        Pause(kAskAgain, limit);
    }
}

}  // namespace ominspect::client
