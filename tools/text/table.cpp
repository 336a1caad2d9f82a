// Columns of text for people.
#include "text/table.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace ominspect::text {

namespace {

bool BeginsCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80;
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
        if (BeginsCharacter(utf8[at]) && width-- == 0) {
            return utf8.substr(0, at);
        }
    }
    return utf8;
}

std::string Table(const std::vector<std::vector<std::string>>& rows) {
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], WidthOf(row[i]));
        }
    }
    std::string out;
    for (const auto& row : rows) {
        if (!out.empty()) {
            out += '\n';
        }
        for (std::size_t i = 0; i + 1 < row.size(); ++i) {
            out += Padded(row[i], widths[i]) + "  ";
        }
        if (!row.empty()) {
            out += row.back();
        }
    }
    return out;
}

std::string Size(double bytes) {
    constexpr std::array<const char*, 5> kUnits{"B", "KiB", "MiB", "GiB", "TiB"};
    std::size_t unit = 0;
    while (bytes >= 1024 && unit + 1 < kUnits.size()) {
        bytes /= 1024;
        ++unit;
    }
    std::array<char, 32> out{};
    (void)std::snprintf(out.data(), out.size(), unit == 0 ? "%.0f %s" : "%.1f %s", bytes, kUnits.at(unit));
    return out.data();
}

}  // namespace ominspect::text
