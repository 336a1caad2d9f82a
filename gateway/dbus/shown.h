// What the typed D-Bus interface shows: the properties of its objects, as values that can be compared. Pure functions.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "actions/operations.h"
#include "common/error.h"
#include "model/picture.h"

namespace ominspect::gateway::dbus {

// Texts are valid UTF-8, times microseconds since 1970 (UTC); 0: none.
struct ShownItem {
    std::string name;
    std::string level;  // empty: not configured, as is `mode`
    std::string mode;
    std::vector<std::string> owners;
    std::string state;
    std::uint64_t runningSince = 0;
    std::string lastStatus;
    std::string lastText;
    std::string lastCause;
    std::uint64_t lastBegin = 0;
    std::uint64_t lastEnd = 0;
};

struct ShownServer {
    bool isUp = false;
    bool isBusy = false;
};

// By object path.
using ShownItems = std::map<std::string, ShownItem>;

std::uint64_t Microseconds(TimePoint time);

// The path of an item's object.
std::string PathOf(const std::string& item);

// The items that somebody has: those that are configured, owned, or running.
ShownItems ItemsOf(const State& state);

// The names of the properties that differ. The name never does.
std::vector<const char*> Differences(const ShownItem& before, const ShownItem& now);
std::vector<const char*> Differences(const ShownServer& before, const ShownServer& now);

struct Times {
    std::uint64_t begin;
    std::uint64_t end;
};

// When the run of an operation that has ended was: as the server told it, else as long as the operation was.
Times TimesOf(const OperationView& operation, const ShownItem* item);

// How many items of an operation are done.
std::uint32_t DoneOf(const OperationView& operation, const ShownItems& items);

// The name of an error on D-Bus.
const char* NameOf(ErrorCode code);

}  // namespace ominspect::gateway::dbus
