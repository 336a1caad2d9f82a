// strftime(3) writes everything but the milliseconds.
#include "common/times.h"

#include <array>
#include <cstdio>
#include <ctime>

namespace ominspect {
namespace {

using Convert = std::tm* (*)(const std::time_t*, std::tm*);

std::string Formatted(TimePoint time, Convert convert, const char* format) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm fields{};
    (void)convert(&seconds, &fields);  // fails for years that a TimePoint does not reach
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

std::string LocalTime(TimePoint time) {
    return Formatted(time, localtime_r, "%H:%M:%S") + Milliseconds(time);
}

std::string LocalDate(TimePoint time) {
    return Formatted(time, localtime_r, "%Y-%m-%d %H:%M");
}

std::string UtcTime(TimePoint time) {
    return Formatted(time, gmtime_r, "%Y-%m-%dT%H:%M:%S") + Milliseconds(time) + "Z";
}

std::string UtcSecond(TimePoint time) {
    return Formatted(time, gmtime_r, "%Y-%m-%dT%H:%M:%SZ");
}

std::string UtcName(TimePoint time) {
    return Formatted(time, gmtime_r, "%Y%m%dT%H%M%SZ");
}

}  // namespace ominspect
