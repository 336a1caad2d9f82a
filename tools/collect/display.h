// What a collection shows: its progress, and the table at its end.
#pragma once

#include <chrono>
#include <string>

#include "common/live_lines.h"
#include "driver.h"
#include "manifest.h"

namespace ominspect::collect {

// Progress on standard error: on a terminal one line that is drawn again and again, else one line per finished entry.
class Display {
public:
    explicit Display(std::size_t count) : count_(count) {}
    ~Display() { Clear(); }
    Display(const Display&) = delete;
    Display& operator=(const Display&) = delete;

    void Show(const Progress& progress);
    void ShowDone(std::size_t index, const EntryReport& report) const;
    void ShowPacking(const PackedTree& packed);

    // Takes the drawn line away.
    void Clear() { screen_.Erase(); }

private:
    bool IsDue();

    const bool terminal_ = IsTerminal(stderr);
    const std::size_t count_;
    LiveLines screen_{stderr};
    std::chrono::steady_clock::time_point next_;  // when the line is drawn again
};

// Entry, files, bytes, time and remark of each entry; without the last line end.
std::string SummaryTable(const std::vector<EntryReport>& reports);

}  // namespace ominspect::collect
