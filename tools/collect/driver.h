// Copies the entries one after the other, each with its own function and under its own limit.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/end_signals.h"
#include "entry.h"

namespace ominspect::collect {

// How far an entry is.
struct Progress {
    std::size_t index;  // from 0
    std::size_t count;  // of the entries
    const Entry& entry;
    std::uint64_t files;
    std::uint64_t bytes;
    std::chrono::milliseconds left;  // until the time limit
};

struct DriverEvents {
    std::function<void(const Progress&)> onProgress;                           // a few times a second
    std::function<void(std::size_t index, const EntryReport& report)> onDone;  // in the order of the entries
};

struct DriveRules {
    CopyRules copy;                                  // for all entries together
    std::optional<std::chrono::seconds> totalLimit;  // of time, for all entries together
};

// Copies all entries into the area and reports on each. An entry ends at its next file when its time is over, and where
// it is some seconds later. The first signal ends the current entry in the same way and leaves out the others; the
// second one gives up at once, and nothing is returned.
std::optional<std::vector<EntryReport>> Drive(const std::vector<Entry>& entries, const DriveRules& rules,
                                              EndSignals& signals, const DriverEvents& events);

}  // namespace ominspect::collect
