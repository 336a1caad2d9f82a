// Rows change with the events; the record then overrules them.
#include "group_progress.h"

#include <algorithm>
#include <iterator>
#include <numeric>
#include <utility>

#include "common/text.h"

namespace ominspect::ctl {

using std::chrono::duration_cast;
using std::chrono::milliseconds;

GroupProgress::GroupProgress(const std::vector<std::string>& items) : nameWidth_(NameWidth(items)) {
    for (const std::string& item : items) {
        rows_.emplace_back().item = item;
    }
}

void GroupProgress::Begin(std::uint32_t taskId, std::size_t first, std::size_t count) {
    groups_.push_back({.taskId = taskId, .first = first, .count = count});
}

std::vector<std::size_t> GroupProgress::RowsOf(const std::string& item) const {
    std::vector<std::size_t> rows;
    if (groups_.empty()) {
        return rows;
    }
    const Group& group = groups_.back();
    for (std::size_t row = group.first; row < group.first + group.count; ++row) {
        if (rows_[row].item == item) {
            rows.push_back(row);
        }
    }
    return rows;
}

bool GroupProgress::OnRun(const client::ItemResult& result, Clock::time_point now) {
    const bool runs = result.status == "running";
    bool news = false;
    if (groups_.empty() || groups_.back().isRecorded) {
        return news;
    }
    for (const std::size_t at : RowsOf(result.name)) {
        Row& row = rows_[at];
        const Phase phase = runs ? Phase::kRunning : Phase::kDone;
        if (row.phase == phase && row.result.status == result.status && row.result.text == result.text) {
            continue;
        }
        if (runs) {
            row.begin = now;
        }
        if (!runs && row.phase == Phase::kRunning) {
            row.duration = duration_cast<milliseconds>(now - row.begin);
        }
        row.phase = phase;
        row.result = result;
        row.order = ++news_;
        news = true;
    }
    return news;
}

std::vector<std::size_t> GroupProgress::OnRecord(const client::GroupRecord& record) {
    std::vector<std::size_t> changed;
    if (groups_.empty()) {
        return changed;
    }
    Group& group = groups_.back();
    group.isRecorded = true;
    for (std::size_t i = 0; i < std::min(group.count, record.items.size()); ++i) {
        Row& row = rows_[group.first + i];
        client::GroupItem item = record.items[i];
        if (item.isMalformed) {
            item.result = {row.item, "malformed", "the owner's result has a text that does not end"};
        }
        const Phase phase = item.result.name.empty() ? Phase::kNotRun : Phase::kDone;
        const bool same =
            row.phase == phase && row.result.status == item.result.status && row.result.text == item.result.text;
        row.phase = phase;
        row.result = item.result;
        row.start = item.start;
        if (item.start && item.end && *item.end >= *item.start) {
            row.duration = duration_cast<milliseconds>(*item.end - *item.start);
        }
        if (same) {
            continue;
        }
        row.order = ++news_;
        changed.push_back(group.first + i);
    }
    return changed;
}

std::size_t GroupProgress::CountOf(Phase phase) const {
    return static_cast<std::size_t>(
        std::count_if(rows_.begin(), rows_.end(), [phase](const Row& row) { return row.phase == phase; }));
}

bool GroupProgress::Passed() const {
    return std::all_of(rows_.begin(), rows_.end(),
                       [](const Row& row) { return row.phase == Phase::kDone && row.result.status == "success"; });
}

std::string GroupProgress::StatusOf(const Row& row) {
    switch (row.phase) {
        case Phase::kWaiting:
            return "waiting";
        case Phase::kNotRun:
            return "not run";
        case Phase::kRunning:
        case Phase::kDone:
            break;
    }
    return row.result.status;
}

std::string GroupProgress::Head() const {
    return RunHead(nameWidth_);
}

std::string GroupProgress::Line(std::size_t at, std::optional<Clock::time_point> now) const {
    const Row& row = rows_[at];
    RunRow shown{{row.item, StatusOf(row), ""}, row.duration};
    if (row.phase == Phase::kRunning) {
        shown.duration = now ? std::optional(duration_cast<milliseconds>(*now - row.begin)) : std::nullopt;
    }
    if (row.phase == Phase::kDone) {
        shown.result.text = row.result.text;
    }
    return RunLine(nameWidth_, shown);
}

std::string GroupProgress::Summary() const {
    std::string text = std::to_string(CountOf(Phase::kDone)) + " of " + std::to_string(rows_.size()) + " done";
    if (const std::size_t running = CountOf(Phase::kRunning); running > 0) {
        text += ", " + std::to_string(running) + " running";
    }
    if (const std::size_t notRun = CountOf(Phase::kNotRun); notRun > 0) {
        text += ", " + std::to_string(notRun) + " not run";
    }
    return text;
}

std::vector<std::size_t> GroupProgress::Visible(std::size_t lines) const {
    std::vector<std::size_t> rows(rows_.size());
    std::iota(rows.begin(), rows.end(), 0U);
    if (rows.size() <= lines) {
        return rows;
    }
    std::stable_sort(rows.begin(), rows.end(), [this](std::size_t left, std::size_t right) {
        const bool leftRuns = rows_[left].phase == Phase::kRunning;
        const bool rightRuns = rows_[right].phase == Phase::kRunning;
        if (leftRuns != rightRuns) {
            return leftRuns;
        }
        return rows_[left].order > rows_[right].order;
    });
    rows.resize(lines);
    std::sort(rows.begin(), rows.end());
    return rows;
}

json::Value GroupProgress::Document() const {
    auto results = json::Value::Array();
    for (const Row& row : rows_) {
        auto result =
            RunJson({{row.item, StatusOf(row), row.phase == Phase::kDone ? row.result.text : ""}, row.duration});
        if (row.start) {
            result.Text("start", UtcTime(*row.start));
        }
        results.Add(std::move(result));
    }
    auto groups = json::Value::Array();
    for (const Group& group : groups_) {
        auto entry = json::Value::Object();
        entry.Number("taskId", group.taskId).Number("items", group.count);
        groups.Add(std::move(entry));
    }
    auto document = json::Value::Object();
    document.Put("results", std::move(results)).Put("groups", std::move(groups));
    return document;
}

}  // namespace ominspect::ctl
