// Times as people and programs read them. Pure functions.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace ominspect {

using TimePoint = std::chrono::system_clock::time_point;

std::string LocalTime(TimePoint time);  // 12:34:56.789
std::string LocalDate(TimePoint time);  // 2026-01-31 12:34
std::string UtcTime(TimePoint time);    // 2026-01-31T12:34:56.789Z
std::string UtcSecond(TimePoint time);  // 2026-01-31T12:34:56Z
std::string UtcName(TimePoint time);    // 20260131T123456Z, for the names of files

// A time as people write it: how long before `now` ("90s", "15m", "2h", "3d"), or a local date and time ("2026-01-31",
// "2026-01-31 12:34", with seconds too), or one with a "T" and a "Z" at the end, which is of UTC. Nothing for other
// texts.
std::optional<TimePoint> ParseTime(const std::string& text, TimePoint now);

}  // namespace ominspect
