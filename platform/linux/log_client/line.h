// The text form of a log line.
//
//   2024-05-01 12:34:56.789 error om_inspect inspect_server/18:123 1234:1240 the text
//
// Local time, level, client, unit / module : source line, process : thread, text. A line without a module has
// "-" in its place. Control characters are written as escapes, so that nobody can forge a line with a text that gets
// logged.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace kivo::log {

/// What is logged, and by which unit.
struct Record {
    uint8_t level = 0;
    const char* unit = nullptr;
    std::optional<uint8_t> module;
    uint32_t line = 0;
    std::string_view text;
};

/// Makes times of day into text. Not thread-safe.
class TimeText {
public:
    /// Local time with milliseconds. Formats anew only what has changed since the last call, which is mostly the
    /// milliseconds. Valid until the next call.
    std::string_view Of(const timespec& time);

private:
    std::optional<time_t> second_;
    std::array<char, 64> text_{};
    size_t length_ = 0;  // up to the second
};

/// When and where it was logged.
struct Origin {
    std::string_view time;
    std::string_view client;
    int process = 0;
    int thread = 0;
};

/// Makes `line` the line without its line end, cut to `limit` bytes. An escape is never cut in two.
void FormatLine(std::string& line, const Record& record, const Origin& origin, size_t limit);

}  // namespace kivo::log
