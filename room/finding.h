// What a check found.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

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

// What several looks have found, put together.
class Findings {
public:
    void Add(Finding finding);

    // The texts of the worst status, one after the other as far as there is room. What is unknown counts only when
    // nothing else was found. Without any finding: unknown, with this text.
    [[nodiscard]] Finding Sum(std::string_view otherwise) const;

private:
    std::vector<Finding> all_;
};

}  // namespace room
