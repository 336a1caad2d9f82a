// Between two drawings the cursor is at the beginning of the line below the last one.
#include "common/live_lines.h"

#include <cstdlib>
#include <string>
#include <string_view>

#include <sys/ioctl.h>
#include <unistd.h>

#include "common/text.h"

namespace ominspect {
namespace {

// Of a terminal that does not tell its size.
constexpr unsigned short kDefaultLines = 24;
constexpr unsigned short kDefaultColumns = 80;

winsize SizeOf(std::FILE* stream) {
    winsize size{};
    if (ioctl(fileno(stream), TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0) {
        return {kDefaultLines, kDefaultColumns, 0, 0};
    }
    return size;
}

// A line that is cut says so.
std::string Fitted(const std::string& line, std::size_t columns) {
    if (text::WidthOf(line) <= columns) {
        return line;
    }
    return std::string(text::CutToWidth(line, columns - 1)) + "\u2026";
}

}  // namespace

bool IsTerminal(std::FILE* stream) {
    const char* kind = std::getenv("TERM");
    return isatty(fileno(stream)) == 1 && kind != nullptr && std::string_view(kind) != "dumb";
}

bool WantsColours(std::FILE* stream) {
    const char* refusal = std::getenv("NO_COLOR");
    return IsTerminal(stream) && (refusal == nullptr || *refusal == '\0');
}

std::size_t LiveLines::Height() const {
    return SizeOf(stream_).ws_row;
}

// No line may wrap, or the way back would be longer than what was drawn: lines are cut, and for characters whose width
// is a matter of opinion the terminal is told not to wrap.
void LiveLines::Draw(const std::vector<std::string>& lines) {
    const std::size_t columns = SizeOf(stream_).ws_col;
    Erase();
    (void)std::fputs("\x1b[?7l", stream_);
    for (const std::string& line : lines) {
        (void)std::fprintf(stream_, "%s\n", Fitted(line, columns).c_str());
    }
    drawn_ = lines.size();
    (void)std::fputs("\x1b[?7h", stream_);
    (void)std::fflush(stream_);
}

// Back to the first line that was drawn, and everything from there on away.
void LiveLines::Erase() {
    if (drawn_ > 0) {
        (void)std::fprintf(stream_, "\x1b[%zuA\r\x1b[J", drawn_);
        (void)std::fflush(stream_);
    }
    drawn_ = 0;
}

}  // namespace ominspect
