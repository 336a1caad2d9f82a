// Starts each group, waits for its record, and stops it.
#include "ominspect/client/group.h"

#include <algorithm>
#include <exception>
#include <string>

#include "waiting.h"

namespace ominspect::client {
namespace {

// How often to ask again for a refused group, and whether a stopped one has ended.
constexpr std::chrono::milliseconds kAskAgain{250};
// The time that the server may need to stop a group; it looks at the stop flag once a second.
constexpr std::chrono::milliseconds kStopLimit{6000};

Result<GroupRun> Start(Session& session, std::span<const Request> requests, const GroupOptions& options,
                       bool waitForTurn, const Limit& limit) {
    bool told = false;
    for (;;) {
        if (auto over = EndOf(limit)) {
            return *over;
        }
        auto run = session.StartGroup(requests, limit);
        if (run || run.Failure().code != ErrorCode::kGroupBusy || !waitForTurn) {
            return run;
        }
        if (!told && options.onRefused) {
            options.onRefused();
        }
        told = true;
        Pause(kAskAgain, limit);
    }
}

// Asks the task to stop until the server no longer knows it. False: it still does at the limit.
bool AwaitEnd(Session& session, std::uint32_t taskId, const Limit& limit) {
    for (;;) {
        const auto known = session.StopTask(taskId, limit);
        if (!known) {
            return false;
        }
        if (!*known) {
            return true;
        }
        Pause(kAskAgain, limit);
    }
}

void StopQuietly(Session& session, std::uint32_t taskId) {
    try {
        (void)session.StopTask(taskId, kStopLimit);
    } catch (const std::exception&) {
        return;  // the first exception is told
    }
}

// Stops a group that has not sent its record. The record may still come, once the items have stopped.
Error Break(Session& session, GroupRun& run, const GroupOptions& options, Error why) {
    const Limit limit(kStopLimit);
    const auto known = session.StopTask(run.TaskId(), limit);
    if (!known) {
        why.text += "; the group could not be stopped: " + known.Failure().text;
        return why;
    }
    const auto record = run.Await(limit);
    if (record && options.onRecord) {
        options.onRecord(*record);
    }
    const bool ended = record && AwaitEnd(session, run.TaskId(), kStopLimit);
    why.text += ended ? "; the group was stopped" : "; the group was asked to stop, but items of it still run";
    return why;
}

// Sees a group that has started to its end. If that throws (memory is short, or a function of the caller throws), the
// group is asked to stop; otherwise its name would stay taken until the server gives the group up.
std::optional<Error> Attend(Session& session, GroupRun& run, std::size_t first, std::size_t count,
                            const GroupOptions& options, const Limit& limit) {
    try {
        if (options.onStart) {
            options.onStart(run.TaskId(), first, count);
        }
        const auto record = run.Await(limit);
        if (!record) {
            const ErrorCode code = record.Failure().code;
            const bool gone = code == ErrorCode::kServerAbsent || code == ErrorCode::kBusUnreachable;
            return gone ? record.Failure() : Break(session, run, options, record.Failure());
        }
        if (options.onRecord) {
            options.onRecord(*record);
        }
        // This is done even if the caller has cancelled by now. If the server is too busy to answer, the stop is in its
        // queue, and the results are there already.
        (void)AwaitEnd(session, run.TaskId(), kStopLimit);
        return std::nullopt;
    } catch (...) {
        StopQuietly(session, run.TaskId());
        throw;
    }
}

}  // namespace

std::optional<Error> RunGroup(Session& session, std::span<const Request> requests, const GroupOptions& options,
                              const Limit& limit) {
    if (requests.empty()) {
        return Error{ErrorCode::kInvalidArgument, "the group is empty"};
    }
    for (const Request& request : requests) {
        if (auto error = CheckRequest(request)) {
            return error;
        }
    }
    for (std::size_t first = 0; first < requests.size(); first += kGroupSlots) {
        const auto slice = requests.subspan(first, std::min(kGroupSlots, requests.size() - first));
        // The groups after the first one always wait for their turn.
        auto run = Start(session, slice, options, options.waitForTurn || first > 0, limit);
        if (!run) {
            return run.Failure();
        }
        if (auto error = Attend(session, *run, first, slice.size(), options, limit)) {
            return error;
        }
    }
    return std::nullopt;
}

}  // namespace ominspect::client
