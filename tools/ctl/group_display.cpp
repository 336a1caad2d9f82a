// On a terminal a thread draws everything anew a few times a second; else each piece of news is a line.
#include "group_display.h"

#include <cstdio>
#include <utility>

#include "report.h"

namespace ominspect::ctl {
namespace {

// Title, heads, summary, and the line on which the cursor rests.
constexpr std::size_t kOtherLines = 4;

}  // namespace

GroupDisplay::GroupDisplay(const std::vector<std::string>& items, bool json, std::function<void()> onBroken)
    : mode_(ModeOf(json)), onBroken_(std::move(onBroken)), progress_(items) {
    if (mode_ == Mode::kTerminal) {
        ticker_ = std::jthread([this](const std::stop_token& over) { RedrawWhileItRuns(over); });
    }
}

GroupDisplay::Mode GroupDisplay::ModeOf(bool json) {
    if (json) {
        return Mode::kJson;
    }
    return IsTerminal(stdout) ? Mode::kTerminal : Mode::kLines;
}

GroupDisplay::~GroupDisplay() = default;

void GroupDisplay::OnStart(std::uint32_t taskId, std::size_t first, std::size_t count) {
    const std::lock_guard lock(mutex_);
    progress_.Begin(taskId, first, count);
    title_ = "task " + std::to_string(taskId) + ": " + std::to_string(count) + (count == 1 ? " item" : " items");
    if (mode_ == Mode::kLines) {
        Print(title_);
        if (first == 0) {
            Print(progress_.Head());
        }
    }
}

void GroupDisplay::OnRun(const client::ItemResult& result) {
    const std::lock_guard lock(mutex_);
    if (finished_ || !progress_.OnRun(result, GroupProgress::Clock::now()) || mode_ != Mode::kLines) {
        return;
    }
    for (const std::size_t row : progress_.RowsOf(result.name)) {
        Print(progress_.Line(row));
    }
}

void GroupDisplay::OnRecord(const client::GroupRecord& record) {
    const std::lock_guard lock(mutex_);
    const auto changed = progress_.OnRecord(record);
    if (mode_ != Mode::kLines) {
        return;
    }
    for (const std::size_t row : changed) {
        Print(progress_.Line(row));
    }
}

void GroupDisplay::Say(const std::string& text) {
    const std::lock_guard lock(mutex_);
    screen_.Erase();
    Complain(text);
}

void GroupDisplay::Print(const std::string& line) {
    PrintLine(line);
    CheckOutput();
}

void GroupDisplay::CheckOutput() const {
    if (std::ferror(stdout) != 0) {
        onBroken_();
    }
}

bool GroupDisplay::Finish(const std::optional<client::Error>& error) {
    ticker_ = {};  // ends and joins it
    const std::lock_guard lock(mutex_);
    finished_ = true;
    switch (mode_) {
        case Mode::kTerminal:
            if (!title_.empty()) {
                PrintAll();
            }
            break;
        case Mode::kLines:
            if (!title_.empty()) {
                Print(progress_.Summary());
            }
            break;
        case Mode::kJson: {
            auto document = progress_.Document();
            if (error) {
                document.Put("error", ErrorJson(*error));
            }
            Print(document.Print());
            break;
        }
    }
    return progress_.Passed();
}

// Whole lines: what stays on the screen may wrap.
void GroupDisplay::PrintAll() {
    screen_.Erase();
    Print(title_);
    Print(progress_.Head());
    for (std::size_t row = 0; row < progress_.Count(); ++row) {
        Print(progress_.Line(row));
    }
    Print(progress_.Summary());
}

void GroupDisplay::RedrawWhileItRuns(const std::stop_token& over) {
    std::unique_lock lock(mutex_);
    while (!over.stop_requested()) {
        const std::size_t lines = screen_.Height();
        if (!title_.empty()) {
            Redraw(progress_.Visible(lines > kOtherLines ? lines - kOtherLines : 1));
        }
        (void)over_.wait_for(lock, over, kRedrawPeriod, [] { return false; });
    }
}

void GroupDisplay::Redraw(const std::vector<std::size_t>& rows) {
    const auto now = GroupProgress::Clock::now();
    std::vector<std::string> lines{title_, progress_.Head()};
    for (const std::size_t row : rows) {
        lines.push_back(progress_.Line(row, now));
    }
    lines.push_back(progress_.Summary());
    screen_.Draw(lines);
    CheckOutput();
}

}  // namespace ominspect::ctl
