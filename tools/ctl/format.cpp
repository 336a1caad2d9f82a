// Columns and times as people read them.
#include "format.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

namespace ominspect::ctl {
namespace {

bool BeginsCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80;
}

using Convert = std::tm* (*)(const std::time_t*, std::tm*);

std::string Formatted(TimePoint time, Convert convert, const char* format) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm fields{};
    (void)convert(&seconds, &fields);
    std::array<char, 40> out{};
    (void)std::strftime(out.data(), out.size(), format, &fields);
    return out.data();
}

std::string Milliseconds(TimePoint time) {
    const auto sinceEpoch = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch());
    std::array<char, 8> out{};
    (void)std::snprintf(out.data(), out.size(), ".%03d", static_cast<int>(sinceEpoch.count() % 1000));
    return out.data();
}

}  // namespace

std::size_t WidthOf(std::string_view utf8) {
    return static_cast<std::size_t>(std::count_if(utf8.begin(), utf8.end(), BeginsCharacter));
}

std::string Padded(std::string text, std::size_t width) {
    const std::size_t own = WidthOf(text);
    return own < width ? text.append(width - own, ' ') : text;
}

std::string_view CutToWidth(std::string_view utf8, std::size_t width) {
    for (std::size_t at = 0; at < utf8.size(); ++at) {
        if (BeginsCharacter(utf8[at]) && width-- == 0) return utf8.substr(0, at);
    }
    return utf8;
}

std::string Table(const std::vector<std::vector<std::string>>& rows) {
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], WidthOf(row[column]));
        }
    }
    std::string out;
    for (const auto& row : rows) {
        if (!out.empty()) out += '\n';
        for (std::size_t column = 0; column < row.size(); ++column) {
            const bool last = column + 1 == row.size();
            out += last ? row[column] : Padded(row[column], widths[column]) + "  ";
        }
    }
    return out;
}

std::string LocalTime(TimePoint time) {
    return Formatted(time, localtime_r, "%H:%M:%S") + Milliseconds(time);
}

std::string LocalDate(TimePoint time) {
    return Formatted(time, localtime_r, "%Y-%m-%d %H:%M");
}

std::string UtcTime(TimePoint time) {
    return Formatted(time, gmtime_r, "%Y-%m-%dT%H:%M:%S") + Milliseconds(time) + "Z";
}

}  // namespace ominspect::ctl
