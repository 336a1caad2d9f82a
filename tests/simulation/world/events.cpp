// The bus's own deliveries are not asked: what is told must be what was broadcast.
#include "world/events.h"

#include <algorithm>
#include <cstring>

#include "actors/actors.h"
#include "model/ledger.h"
#include "world/choices.h"
#include "world/journal.h"
#include "world/outcome.h"

namespace sim {

namespace {

constexpr const char* kTask = "ic_events";

uint64_t g_last = 0;

// What an event function is to be told; empty: nothing, since a text does not end.
std::string ToldOf(uint32_t id, const Bytes& data) {
    if (id == 9) {
        return data.front() == 0 ? "busy" : "idle";
    }
    const auto ends = [&data](size_t from, size_t to) { return std::memchr(&data[from], 0, to - from) != nullptr; };
    const bool all = ends(0, 32) && ends(32, 64) && ends(64, 192);
    return all ? model::WordsOf(BytesView(data)).Describe() : std::string();
}

}  // namespace

bool GetsEvents(const std::string& process, const std::string& task) {
    return process == "ominspect" && task == kTask;
}

uint64_t NoteEvent(const std::string& from, const std::string& task, uint32_t id, const Bytes& data) {
    ++g_last;
    std::string told;
    ForEachProcess([&](Process& subscriber) {
        const auto isOf = [&](const OsMsgSubscription& wanted) {
            return wanted.eventId == id && from == wanted.srcProcName && task == wanted.srcTaskName &&
                   GetsEvents(from, wanted.dstTaskName);
        };
        if (subscriber.Attached() && std::ranges::any_of(subscriber.subscriptions, isOf)) {
            if (told.empty()) {
                told = ToldOf(id, data);
            }
            subscriber.untold.push_back({g_last, id, told});
        }
    });
    return g_last;
}

void LoseEvent(Process& subscriber, uint64_t number) {
    std::erase_if(subscriber.untold, [number](const Untold& event) { return event.number == number; });
}

void CheckTold(Process& subscriber, uint64_t number) {
    if (subscriber.untold.empty() || subscriber.untold.front().number != number) {
        return;  // told
    }
    if (!subscriber.untold.front().told.empty()) {
        Violation("a session is not told of an event: " + subscriber.untold.front().told);
    }
    Reached("event: without the end of a text");
    subscriber.untold.pop_front();
}

void TellEvent(uint32_t id, const std::string& told) {
    std::deque<Untold>& untold = CurrentProcess().untold;
    Note({"told of event ", id, " ", told});
    if (untold.empty()) {
        Violation("a session is told of an event that it must not get, or not twice: " + told);
    }
    if (untold.front().id != id || untold.front().told != told) {
        Violation("a session is told of the event " + told + " instead of " + untold.front().told);
    }
    Reached("event: told");
    untold.pop_front();
    if (TheManners().dawdles && !IsRetired() && OneIn(100)) {
        (void)Wait("its own work", nullptr, Now() + Pick(3600) * kSecond);
    }
}

}  // namespace sim
