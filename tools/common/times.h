// Times as people and programs read them. Pure functions.
#pragma once

#include <chrono>
#include <string>

namespace ominspect {

using TimePoint = std::chrono::system_clock::time_point;

std::string LocalTime(TimePoint time);  // 12:34:56.789
std::string LocalDate(TimePoint time);  // 2026-01-31 12:34
std::string UtcTime(TimePoint time);    // 2026-01-31T12:34:56.789Z
std::string UtcSecond(TimePoint time);  // 2026-01-31T12:34:56Z
std::string UtcName(TimePoint time);    // 20260131T123456Z, for the names of files

}  // namespace ominspect
