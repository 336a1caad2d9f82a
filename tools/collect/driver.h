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
    std::optional<std::chrono::milliseconds> left;  // until the time limit; nothing where there is none
};

struct DriverEvents {
    std::function<void(const Progress&)> onProgress;                           // a few times a second
    std::function<void(std::size_t index, const EntryReport& report)> onDone;  // in the order of the entries
};

// Copies all entries into the area and reports on each. The first signal ends the current entry at its next file and
// leaves out the others; the second one gives up at once, and nothing is returned.
std::optional<std::vector<EntryReport>> Drive(const std::vector<Entry>& entries, const std::string& area,
                                              EndSignals& signals, const DriverEvents& events);

}  // namespace ominspect::collect
