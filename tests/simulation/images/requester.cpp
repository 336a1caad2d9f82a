// A requester as people write one, with the client library. It checks what the library promises: an answer of the item
// that was asked for, or an error, within the limit; and when a call is cancelled, that it returns and leaves nothing.
#include "images/requester.h"

#include <array>
#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "images/call.h"
#include "ominspect/client/group.h"
#include "ominspect/client/run.h"
#include "ominspect/client/session.h"

namespace {

using namespace ominspect::client;
using std::chrono::milliseconds;

// What the library may take after a cancellation to stop a run, or to start a group and to stop it.
constexpr milliseconds kStopsRun{7000};
constexpr milliseconds kStartsGroup{6000};
constexpr milliseconds kStopsGroup{12000};

std::string PickItem() {
    std::array<char, 64> name{};
    SimPickItem(name.data(), name.size());
    return name.data();
}

Request PickRequest() {
    std::array<char, 256> cmd{};
    SimPickCommand(cmd.data(), cmd.size());
    return {PickItem(), cmd.data()};
}

// A bus that is lost ends the requester.
bool IsEnd(const Error& error) {
    return error.code == ErrorCode::kBusUnreachable;
}

// A run whose limit has ended may also be cancelled while it is stopped.
bool IsGivenUp(const Error& error) {
    return error.code == ErrorCode::kCancelled || error.code == ErrorCode::kTimeLimit;
}

void Judge(const char* what, const Request& request, const std::string& name) {
    if (name != request.item) {
        SimViolation((std::string(what) + " of " + request.item + " gave the result of " + name).c_str());
    }
}

// Of an item: the calls that ended without their results, which may still come.
struct Missed {
    uint64_t first = 0;  // when the first of them began
    uint32_t count = 0;
};
using Pending = std::map<std::string, Missed>;

// A session has 16 ways for the results of an item. A call that ends early leaves two of them in use at most: that of
// its run, and that of its stop. Only when all are in use, results may come to a later call.
constexpr uint32_t kMostMissed = 7;
// The next session has the same ways.
constexpr uint32_t kFormerSession = kMostMissed + 1;

// Since when a result of the item that begins now may have been so.
uint64_t SinceWhen(const Pending& pending, const std::string& item, uint64_t begin) {
    const auto missed = pending.find(item);
    return missed != pending.end() && missed->second.count > kMostMissed ? missed->second.first : begin;
}

void Give(const ItemResult& result, uint64_t since) {
    SimGive(result.name.c_str(), result.status.c_str(), result.text.c_str(), since);
}

// One thread asks for one item after the other, and so never waits on all ways for results at once.
void JudgeError(const Request& request, const Error& error, bool hasOwnRun) {
    if (error.code == ErrorCode::kInvalidArgument && !CheckRequest(request)) {
        SimViolation(("RunItem refuses a right request: " + error.text).c_str());
    }
    if (IsGivenUp(error) && hasOwnRun && KindOf(request) == RequestKind::kRun &&
        error.text.find(';') == std::string::npos) {
        SimViolation("RunItem does not say what becomes of the run that it gives up");
    }
    if (error.code == ErrorCode::kCancelled && error.text.find("the item was stopped") != std::string::npos) {
        SimReached("client: run cancelled and stopped");
    }
}

bool RunOne(Session& session, Pending& pending, bool& hasResult) {
    const Request request = PickRequest();
    RunOptions options;
    options.join = SimPick(2) == 1;
    options.leaveRunning = SimPick(4) == 3;
    const uint64_t begin = SimNow();
    const uint64_t since = SinceWhen(pending, request.item, begin);
    bool hasBegun = false;
    bool isOther = false;
    options.onOther = [&isOther] { isOther = true; };
    options.onRunning = [&hasBegun, since](const ItemResult& running) {
        hasBegun = true;
        Give(running, since);
    };
    const bool stops = KindOf(request) == RequestKind::kRun && !options.leaveRunning;
    Call call("RunItem", stops ? kStopsRun : milliseconds(0));
    const auto outcome = RunItem(session, request, options, call.TheLimit());
    call.Check(outcome);
    if (call.SinceCancellation() > milliseconds(0) && (outcome || !IsGivenUp(outcome.Failure()))) {
        SimViolation("RunItem goes on after its cancellation, and then does not say that it was cancelled");
    }
    if (!outcome) {
        JudgeError(request, outcome.Failure(), hasBegun && !isOther);
        ++pending.try_emplace(request.item, Missed{begin, 0}).first->second.count;
        return !IsEnd(outcome.Failure());
    }
    Judge("RunItem", request, outcome->result.name);
    if (KindOf(request) == RequestKind::kRun && outcome->result.status == "running") {
        SimViolation("RunItem gave a result that is not the last one");
    }
    Give(outcome->result, since);
    hasResult = true;
    return true;
}

// Whoever got no result in time may ask for the next item at once, while the results of the first one are still to
// come.
bool RunInARow(Session& session, Pending& pending) {
    bool hasResult = false;
    bool goesOn = true;
    do {
        goesOn = RunOne(session, pending, hasResult);
    } while (goesOn && !hasResult && SimPick(2) == 1);
    return goesOn;
}

bool RunSync(Session& session) {
    const Request request = PickRequest();
    Call call("Run");
    const uint64_t since = SimNow();
    const auto reply = session.Run(request, call.TheLimit());
    call.Check(reply);
    if (!reply) {
        return !IsEnd(reply.Failure());
    }
    if (!reply->isPending) {
        Give(reply->result, since);
    }
    return true;
}

// A group that is not seen to its end is stopped, or the error says why it may run on.
class GroupWatch {
public:
    void Starts(uint32_t taskId) {
        taskId_ = taskId;
        runs_ = true;
    }
    void SendsRecord() { runs_ = false; }

    void Judge(const Error& error, const Call& call) const {
        const auto says = [&error](const char* what) { return error.text.find(what) != std::string::npos; };
        const bool isCancelled = error.code == ErrorCode::kCancelled;
        if (isCancelled && says("may start the group yet") && call.SinceCancellation() < kStartsGroup) {
            SimViolation("RunGroup does not wait for the start of a group that it has asked for");
        }
        const bool isStopped = says("; the group was ");  // or asked to stop
        const bool isGone = error.code == ErrorCode::kServerAbsent || IsEnd(error);
        if (runs_ && !isStopped && !isGone && !says("could not be stopped")) {
            SimViolation("RunGroup leaves a group running");
        }
        const SimTask state = isStopped ? SimStateOfTask(taskId_) : SimTask::kUnknown;
        if (state == SimTask::kGoesOn || (says("; the group was stopped") && state != SimTask::kUnknown)) {
            SimViolation("RunGroup says that a group was stopped, which goes on");
        }
        if (isCancelled && isStopped) {
            SimReached("client: group cancelled");
            SimReached(state == SimTask::kUnknown ? "client: group cancelled, ended"
                                                  : "client: group cancelled, still stopping");
        }
    }

private:
    uint32_t taskId_ = 0;
    bool runs_ = false;  // its record has not come
};

bool RunSome(Session& session) {
    std::vector<Request> requests;
    const uint32_t count = SimPick(16) == 15 ? 40 : 1 + SimPick(5);
    while (requests.size() < count) {
        requests.push_back(PickRequest());
    }
    Call call("RunGroup", kStartsGroup + kStopsGroup, 2 * kGrace);
    GroupOptions options;
    options.waitForTurn = SimPick(2) == 1;
    size_t known = 0;
    size_t expected = 0;
    GroupWatch watch;
    options.onStart = [&](uint32_t taskId, size_t /*first*/, size_t started) {
        expected = started;
        watch.Starts(taskId);
    };
    const uint64_t since = SimNow();
    options.onRecord = [&](const GroupRecord& record) {
        watch.SendsRecord();
        for (size_t i = 0; i < record.items.size() && record.items.size() == expected; ++i) {
            const ItemResult& result = record.items[i].result;
            if (!result.name.empty()) {  // it has begun
                Judge("RunGroup", requests[known + i], result.name);
                Give(result, since);
            }
        }
        known += record.items.size();
        if (record.items.size() != expected) {
            SimViolation("a group's record has another number of items than were asked for");
        }
    };
    const auto error = RunGroup(session, requests, options, call.TheLimit());
    call.Check(error);
    if (!error && known != requests.size()) {
        SimViolation("RunGroup gave fewer results than were asked for");
    }
    if (error) {
        watch.Judge(*error, call);
    }
    return !error || !IsEnd(*error);
}

bool AskState(Session& session) {
    Call call("State");
    const auto state = session.State(PickItem(), call.TheLimit());
    call.Check(state);
    return state || !IsEnd(state.Failure());
}

bool AskItems(Session& session) {
    Call call("Items");
    const auto items = session.Items(call.TheLimit());
    call.Check(items);
    if (items && items->configured != 25) {
        SimViolation("Items gave another number of configured items");
    }
    return items || !IsEnd(items.Failure());
}

bool ResetOne(Session& session) {
    Call call("Reset");
    const auto error = session.Reset(PickItem(), call.TheLimit());
    call.Check(error);
    return !error || !IsEnd(*error);
}

bool DoOne(Session& session, Pending& pending) {
    switch (SimPick(8)) {
        case 4:
        case 5:
            return RunSome(session);
        case 6:
            return SimPick(2) == 0 ? AskState(session) : RunSync(session);
        case 7:
            return SimPick(2) == 0 ? AskItems(session) : ResetOne(session);
        default:
            return RunInARow(session, pending);
    }
}

// One session; false: the requester is to end. Without a subscription nothing must be told.
bool UseSession(const char* name, Pending& pending) {
    Events events;
    events.onRun = [](const ItemResult& run) { SimTellRun(run.name.c_str(), run.status.c_str(), run.text.c_str()); };
    events.onBusy = SimTellBusy;
    auto session = Session::Open(events, name);
    if (!session) {
        return false;
    }
    for (auto& [item, missed] : pending) {
        missed.count += kFormerSession;
    }
    if (SimPick(8) != 7) {
        (void)(*session)->Subscribe();
    }
    while (SimRest() && DoOne(**session, pending)) {
        if (SimPick(256) == 255) {
            return true;
        }
    }
    return false;
}

}  // namespace

void SimRunRequester(const char* name) {
    Pending pending;
    LetCallsBeCancelled(SimPick(2) == 1);
    while (UseSession(name, pending)) {
    }
}
