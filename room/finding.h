// What a check found.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace room {

enum class Status { Success, Warn, Fail, Unknown };

// The status, and at most kMaxText bytes of plain text on one line: what was found and, when it is not good, what to
// do.
struct Finding {
    static constexpr std::size_t kMaxText = 127;
    Status status = Status::Unknown;
    std::string text;
};

// Each cuts the text at a whole character and makes one line of it.
Finding Success(std::string_view text);
Finding Warn(std::string_view text);
Finding Fail(std::string_view text);
Finding Unknown(std::string_view text);

// "success", "warn", "fail" or "unknown".
std::string_view StatusWord(Status status);

// The worse of the two: fail before warn before unknown before success.
bool IsWorse(Status status, Status than);

}  // namespace room
