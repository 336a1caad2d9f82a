// A requester as people write one, with the client library. It checks what the library promises: an answer of the item
// that was asked for, or an error, within the limit.
#include "images/requester.h"

#include <array>
#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "ominspect/client/group.h"
#include "ominspect/client/run.h"
#include "ominspect/client/session.h"

namespace {

using namespace ominspect::client;
using std::chrono::milliseconds;

// Beyond the limit: what the library says that it may take to stop what it began.
constexpr milliseconds kGrace{20000};

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

milliseconds PickLimit() {
    static constexpr uint32_t kLimits[] = {10000, 500, 60000, 400000, 1};
    return milliseconds(kLimits[SimPick(5)]);
}

// The time that a call takes.
class Clock {
public:
    explicit Clock(milliseconds limit) : end_(Limit::Clock::now() + limit + kGrace) {}

    void Check(const char* what) const {
        if (Limit::Clock::now() > end_) {
            SimViolation((std::string(what) + " lasted longer than its limit").c_str());
        }
    }

private:
    Limit::Clock::time_point end_;
};

// A bus that is lost ends the requester.
bool IsEnd(const Error& error) {
    return error.code == ErrorCode::kBusUnreachable;
}

void Judge(const char* what, const Request& request, const std::string& name) {
    if (name != request.item) {
        SimViolation((std::string(what) + " of " + request.item + " gave the result of " + name).c_str());
    }
}

// By item: when the first request was made whose results may still come.
using Pending = std::map<std::string, uint64_t>;

void Give(const ItemResult& result, uint64_t since) {
    SimGive(result.name.c_str(), result.status.c_str(), result.text.c_str(), since);
}

bool RunOne(Session& session, Pending& pending, bool& hasResult) {
    const Request request = PickRequest();
    const milliseconds limit = PickLimit();
    RunOptions options;
    options.join = SimPick(2) == 1;
    options.leaveRunning = SimPick(4) == 3;
    const uint64_t begin = SimNow();
    const uint64_t since = pending.emplace(request.item, begin).first->second;
    options.onRunning = [since](const ItemResult& running) { Give(running, since); };
    const Clock clock(limit);
    const auto outcome = RunItem(session, request, options, limit);
    clock.Check("RunItem");
    if (!outcome) {
        return !IsEnd(outcome.Failure());
    }
    Judge("RunItem", request, outcome->result.name);
    if (KindOf(request) == RequestKind::kRun && outcome->result.status == "running") {
        SimViolation("RunItem gave a result that is not the last one");
    }
    Give(outcome->result, since);
    if (since == begin) {
        pending.erase(request.item);
    }
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
    const milliseconds limit = PickLimit();
    const Clock clock(limit);
    const uint64_t since = SimNow();
    const auto reply = session.Run(request, limit);
    clock.Check("Run");
    if (!reply) {
        return !IsEnd(reply.Failure());
    }
    if (!reply->isPending) {
        Give(reply->result, since);
    }
    return true;
}

bool RunSome(Session& session) {
    std::vector<Request> requests;
    const uint32_t count = SimPick(16) == 15 ? 40 : 1 + SimPick(5);
    while (requests.size() < count) {
        requests.push_back(PickRequest());
    }
    const milliseconds limit = PickLimit();
    GroupOptions options;
    options.waitForTurn = SimPick(2) == 1;
    size_t known = 0;
    size_t expected = 0;
    options.onStart = [&](uint32_t /*taskId*/, size_t /*first*/, size_t started) { expected = started; };
    const uint64_t since = SimNow();
    options.onRecord = [&](const GroupRecord& record) {
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
    const Clock clock(limit + milliseconds(20000));
    const auto error = RunGroup(session, requests, options, limit);
    clock.Check("RunGroup");
    if (!error && known != requests.size()) {
        SimViolation("RunGroup gave fewer results than were asked for");
    }
    return !error || !IsEnd(*error);
}

bool AskState(Session& session) {
    const milliseconds limit = PickLimit();
    const Clock clock(limit);
    const auto state = session.State(PickItem(), limit);
    clock.Check("State");
    return state || !IsEnd(state.Failure());
}

bool AskItems(Session& session) {
    const milliseconds limit = PickLimit();
    const Clock clock(limit);
    const auto items = session.Items(limit);
    clock.Check("Items");
    if (items && items->configured != 25) {
        SimViolation("Items gave another number of configured items");
    }
    return items || !IsEnd(items.Failure());
}

bool ResetOne(Session& session) {
    const milliseconds limit = PickLimit();
    const Clock clock(limit);
    const auto error = session.Reset(PickItem(), limit);
    clock.Check("Reset");
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
    if (SimPick(8) != 7) {
        (void)(*session)->Subscribe();
    }
    while (SimRest() && DoOne(**session, pending)) {
        if (SimPick(64) == 63) {
            return true;
        }
    }
    return false;
}

}  // namespace

void SimRunRequester(const char* name) {
    Pending pending;
    while (UseSession(name, pending)) {
    }
}
