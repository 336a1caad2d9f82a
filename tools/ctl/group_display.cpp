// Shows a group run as it goes on. The terminal's control sequences are those of ECMA-48.
#include "group_display.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>

#include <sys/ioctl.h>
#include <unistd.h>

#include "report.h"
#include "text/table.h"

namespace ominspect::ctl {
namespace {

constexpr std::chrono::milliseconds kRedrawPeriod{200};
// A terminal that does not tell its size.
constexpr std::size_t kDefaultLines = 24;
constexpr std::size_t kDefaultColumns = 80;
// Title, heads, summary, and the line on which the cursor rests.
constexpr std::size_t kOtherLines = 4;

bool IsTerminal() {
    const char* kind = std::getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && kind != nullptr && std::string_view(kind) != "dumb";
}

struct Screen {
    std::size_t lines = kDefaultLines;
    std::size_t columns = kDefaultColumns;
};

Screen ScreenNow() {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0) {
        return {};
    }
    return {size.ws_row, size.ws_col};
}

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
    return IsTerminal() ? Mode::kTerminal : Mode::kLines;
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
    Erase();
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
                Redraw(progress_.Visible(progress_.Count()));
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

void GroupDisplay::RedrawWhileItRuns(const std::stop_token& over) {
    std::unique_lock lock(mutex_);
    while (!over.stop_requested()) {
        const std::size_t lines = ScreenNow().lines;
        if (!title_.empty()) {
            Redraw(progress_.Visible(lines > kOtherLines ? lines - kOtherLines : 1));
        }
        (void)over_.wait_for(lock, over, kRedrawPeriod, [] { return false; });
    }
}

// Back to the first line that was drawn, and everything from there on away.
void GroupDisplay::Erase() {
    if (drawn_ > 0) {
        (void)std::printf("\x1b[%zuA\r\x1b[J", drawn_);
    }
    drawn_ = 0;
}

// No line may wrap, or the way back would be longer than what was drawn: lines are cut, and for characters that take
// two columns the terminal is told not to wrap.
void GroupDisplay::Redraw(const std::vector<std::size_t>& rows) {
    const std::size_t columns = ScreenNow().columns;
    const auto now = GroupProgress::Clock::now();
    Erase();
    (void)std::printf("\x1b[?7l");
    const auto draw = [&](const std::string& line) {
        const std::string_view cut = text::CutToWidth(line, columns);
        (void)std::printf("%.*s\n", static_cast<int>(cut.size()), cut.data());
        ++drawn_;
    };
    draw(title_);
    draw(progress_.Head());
    for (const std::size_t row : rows) {
        draw(progress_.Line(row, now));
    }
    draw(progress_.Summary());
    (void)std::printf("\x1b[?7h");
    (void)std::fflush(stdout);
    CheckOutput();
}

}  // namespace ominspect::ctl
