// Columns and times as people read them. Pure functions.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace ominspect::ctl {

using TimePoint = std::chrono::system_clock::time_point;

// Characters of a valid UTF-8 text: the columns it takes, wide and combining characters aside.
std::size_t WidthOf(std::string_view utf8);

// The text, filled up with blanks to `width` columns.
std::string Padded(std::string text, std::size_t width);

// The longest beginning of a valid UTF-8 text that takes at most `width` columns.
std::string_view CutToWidth(std::string_view utf8, std::size_t width);

// Rows of equally many cells, two blanks between them; the last column is not padded. No line end at the end.
std::string Table(const std::vector<std::vector<std::string>>& rows);

std::string LocalTime(TimePoint time);  // 12:34:56.789
std::string LocalDate(TimePoint time);  // 2026-01-31 12:34
std::string UtcTime(TimePoint time);    // 2026-01-31T12:34:56.789Z

}  // namespace ominspect::ctl
