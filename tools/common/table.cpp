// Widths are columns of the terminal, neither bytes nor characters.
#include "common/table.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "common/text.h"

namespace ominspect::text {

std::string Padded(std::string text, std::size_t width) {
    const std::size_t own = WidthOf(text);
    return own < width ? text.append(width - own, ' ') : text;
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
