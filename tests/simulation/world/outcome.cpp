// States are numbered in a table that is the same in every process: it is filled before the first run.
#include "world/outcome.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "world/journal.h"
#include "world/scheduler.h"

namespace sim {

namespace {

Outcome* g_outcome = nullptr;

// Every state that a run can reach, as the model and the world name them.
constexpr const char* kStates[] = {
    "bus: message lost with one of its ends",
    "bus: message lost, queue full",
    "bus: reply to a sender that left",
    "bus: request refused, queue full",
    "bus: request timed out",
    "bus: server absent",
    "client: call cancelled",
    "client: call cancelled, another error",
    "client: call cancelled, result was there",
    "client: group cancelled",
    "client: group cancelled, ended",
    "client: group cancelled, still stopping",
    "client: killed while it asked",
    "client: left while it asked",
    "client: run cancelled and stopped",
    "client: waited for the cancelling thread",
    "event: lost, queue full",
    "event: told",
    "event: without the end of a text",
    "group: all items final at once",
    "group: more than 32 texts",
    "group: no worker",
    "group: record sent before the stop",
    "group: refused, one runs",
    "group: stopped before its items",
    "group: stopped with items pending",
    "group: trace",
    "group: unknown",
    "group: wait for the stop timed out",
    "heartbeat: no timer",
    "heartbeat: not subscribed",
    "item: answered at once",
    "item: count wrapped",
    "item: deleted idle",
    "item: deleted while its owner was asked",
    "item: deleted while running",
    "item: joined",
    "item: joined by more than 200",
    "item: joined, final",
    "item: registered anew",
    "item: registered anew while running",
    "item: unknown",
    "item: wait err",
    "job: no thread",
    "job: stop of a wait timer refused",
    "job: stop of an unknown one",
    "job: stopped",
    "list: count",
    "list: items",
    "owner: deferred answer",
    "owner: deferred answer, nobody waits",
    "owner: gone",
    "owner: not asked, send failed",
    "owner: not registered any more",
    "owner: reply empty",
    "owner: reply too long",
    "owner: silent for the limit",
    "reply: not sent",
    "report: final",
    "report: final after the time limit",
    "report: final for an idle item",
    "report: ignored, item not running",
    "report: not terminated",
    "report: progress, forwarded",
    "report: progress, nobody waits",
    "report: unknown item",
    "report: wrong size",
    "request: command done",
    "request: command stop",
    "request: empty payload",
    "request: no JSON",
    "request: unknown id",
    "result: sent to one who left",
    "server: busy begins",
    "server: busy ends",
    "server: ended by itself",
    "server: killed holding the table",
    "server: killed while an owner was asked",
    "state: idle",
    "state: not idle",
    "state: without a name",
    "sync: waited with the empty name",
    "wait: entry gone at the limit",
    "wait: no limit",
    "wait: not running at the limit",
    "wait: stopped",
    "wait: timed out",
};
static_assert(std::size(kStates) <= kMaxStates);

}  // namespace

const char* NameOf(Fault fault) {
    static constexpr const char* kNames[] = {
        "server killed", "owner killed",  "client killed", "bus gone",      "time limit reached just then",
        "queue full",    "no thread",     "no memory",     "slow disk",     "clock set",
        "owner lies",    "owner babbles", "send fails",    "timer refused", "subscription refused",
        "log restarts",  "message late",
    };
    static_assert(std::size(kNames) == static_cast<size_t>(Fault::kCount));
    return kNames[static_cast<size_t>(fault)];
}

Outcome& TheOutcome() {
    return *g_outcome;
}

void UseOutcome(Outcome* outcome) {
    g_outcome = outcome;
}

void FinishOutcome() {
    g_outcome->sum = JournalSum();
    g_outcome->time = Now();
    g_outcome->finished = true;
}

void Count(Fault fault) {
    Note({"FAULT ", NameOf(fault)});
    ++g_outcome->faults[static_cast<size_t>(fault)];
}

void Reached(const char* state) {
    const auto* const end = std::end(kStates);
    const auto* const found = std::lower_bound(std::begin(kStates), end, state, [](const char* one, const char* other) {
        return std::strcmp(one, other) < 0;
    });
    if (found == end || std::strcmp(*found, state) != 0) {
        Violation(std::string("the simulator itself: no state ") + state);
    }
    g_outcome->states[static_cast<size_t>(found - std::begin(kStates))] = true;
}

const char* StateName(size_t number) {
    return number < std::size(kStates) ? kStates[number] : nullptr;
}

}  // namespace sim
