// What the gateway tells its consumers, one after the other.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "common/history_file.h"

namespace ominspect::gateway {

enum class EventKind {
    // Kept in the history, and numbered.
    kResult,  // a run of `item` ended
    kServer,  // the server came ("up") or left ("away")
    kBusy,    // the server became "busy" or "idle"
    kGap,     // from `begin` to `time` nobody watched; `text` says why
    // Passing ones: a consumer that misses one asks for the state.
    kBegan,      // a run of `item` began
    kItems,      // items, owners or states have changed
    kPart,       // a part of the gateway has another state; `item` is its name
    kOperation,  // an operation went on: `document` holds it
    kCollection  // a collection went on: `document` holds it
};

// The event's stable word.
const char* WordOf(EventKind kind);

// Its kind in the history; nothing for a passing one.
std::optional<history::Kind> StoredKind(EventKind kind);

struct Event {
    EventKind kind = EventKind::kItems;
    TimePoint time;
    std::string item;  // bytes from outside, as are status and text
    std::string status;
    std::string text;
    std::string cause;  // who asked for the run, where that is known
    std::optional<TimePoint> begin;
    std::optional<std::chrono::milliseconds> duration;
    std::string document;   // JSON
    std::uint64_t seq = 0;  // of a kept event, rising; given by the feed
    bool isLoss = false;    // a gap: what the server told is lost, so that the picture may be wrong
};

// One of which nothing else is known.
Event EventNow(EventKind kind, const char* status = "");

// The event that a row of the history was.
Event EventOf(const history::Row& row);

}  // namespace ominspect::gateway
