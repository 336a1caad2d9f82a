// The whole life of a group run.
#include "ominspect/client/group.h"

#include <algorithm>
#include <string>

#include "waiting.h"

namespace ominspect::client {
namespace {

// How often a refused group asks again, and an ending one whether it has ended.
constexpr std::chrono::milliseconds kAskAgain{250};
// What the server may need to stop a group; the runner looks at its stop flag once a second.
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

// Asks the task to stop until the server knows it no more; whether it came to that.
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

// Before the record: the items that run are asked to stop, and the record may come all the same.
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
        // Once it has had its turn, the rest belongs to it.
        auto run = Start(session, slice, options, options.waitForTurn || first > 0, limit);
        if (!run) {
            return run.Failure();
        }
        if (options.onStart) {
            options.onStart(run->TaskId(), first, slice.size());
        }
        const auto record = run->Await(limit);
        if (!record) {
            const ErrorCode code = record.Failure().code;
            const bool gone = code == ErrorCode::kServerAbsent || code == ErrorCode::kBusUnreachable;
            return gone ? record.Failure() : Break(session, *run, options, record.Failure());
        }
        if (options.onRecord) {
            options.onRecord(*record);
        }
        // Sent even if the caller has cancelled by now. A server that is too busy to answer has the stop in its queue:
        // the results are there all the same.
        (void)AwaitEnd(session, run->TaskId(), kStopLimit);
    }
    return std::nullopt;
}

}  // namespace ominspect::client
