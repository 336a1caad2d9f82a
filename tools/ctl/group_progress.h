// What is known of a group run while it goes on, and how it is shown. No input or output; one thread at a time.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "common/json.h"
#include "ominspect/client/types.h"
#include "output.h"

namespace ominspect::ctl {

class GroupProgress {
public:
    using Clock = std::chrono::steady_clock;

    explicit GroupProgress(const std::vector<std::string>& items);

    // The server has now taken `count` items, from the one at `first` on.
    void Begin(std::uint32_t taskId, std::size_t first, std::size_t count);

    // An item began or ended. True when the item belongs to the group and this is new. After the record every event is
    // about somebody else's run and false.
    bool OnRun(const client::ItemResult& result, Clock::time_point now);

    // Takes the record of the group that began last, which is final for its items. Returns the rows that it changed.
    std::vector<std::size_t> OnRecord(const client::GroupRecord& record);

    // The rows of an item, by its place on the command line.
    std::vector<std::size_t> RowsOf(const std::string& item) const;
    std::size_t Count() const { return rows_.size(); }

    // Whether all items ended with "success".
    bool Passed() const;

    // One row as a line: its status and text, "waiting" before its turn, "not run" when the group was stopped before.
    // With `now`, a running item also shows for how long it has run.
    std::string Head() const;
    std::string Line(std::size_t at, std::optional<Clock::time_point> now = std::nullopt) const;

    // "3 of 9 done, 1 running"
    std::string Summary() const;

    // Which rows a screen of `lines` lines shows while the group runs: the running ones first, then those that ended
    // last.
    std::vector<std::size_t> Visible(std::size_t lines) const;

    // {"results":[...],"groups":[{"taskId","items"}]}
    json::Value Document() const;

private:
    enum class Phase { kWaiting, kRunning, kDone, kNotRun };

    struct Row {
        std::string item;
        Phase phase = Phase::kWaiting;
        client::ItemResult result;
        Clock::time_point begin;
        std::optional<std::chrono::milliseconds> duration;
        std::optional<client::SystemTime> start;
        std::size_t order = 0;  // of its last news
    };

    struct Group {
        std::uint32_t taskId;
        std::size_t first;
        std::size_t count;
        bool isRecorded = false;
    };

    static std::string StatusOf(const Row& row);
    std::size_t CountOf(Phase phase) const;

    std::vector<Row> rows_;
    std::vector<Group> groups_;  // the last one is under way
    std::size_t nameWidth_;
    std::size_t news_ = 0;
};

}  // namespace ominspect::ctl
