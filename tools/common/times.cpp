// strftime(3) writes everything but the milliseconds.
#include "common/times.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <string_view>
#include <utility>

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

std::optional<TimePoint> ParseTime(const std::string& text, TimePoint now) {
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    constexpr std::int64_t kMostAge = 1000000000;
    constexpr std::int64_t kReach = 9000000000;  // seconds on either side of 1970 that a TimePoint surely holds
    if (error == std::errc() && end - rest == 1 && number >= 0 && number <= kMostAge) {
        for (const auto& [letter, unit] :
             {std::pair('s', 1), std::pair('m', 60), std::pair('h', 3600), std::pair('d', 86400)}) {
            if (*rest == letter && number * unit <= kReach) {
                return now - std::chrono::seconds(number * unit);
            }
        }
    }
    for (const char* format : {"%Y-%m-%dT%H:%M:%SZ", "%Y-%m-%d %H:%M:%S", "%Y-%m-%d %H:%M", "%Y-%m-%d"}) {
        std::tm fields{};
        const char* last = strptime(text.c_str(), format, &fields);
        if (last != nullptr && *last == '\0') {
            fields.tm_isdst = -1;
            const bool isUtc = std::string_view(format).ends_with('Z');
            const std::time_t seconds = isUtc ? timegm(&fields) : mktime(&fields);
            const bool isReached = seconds >= -kReach && seconds <= kReach;
            return isReached ? std::optional(std::chrono::system_clock::from_time_t(seconds)) : std::nullopt;
        }
    }
    return std::nullopt;
}

}  // namespace ominspect
