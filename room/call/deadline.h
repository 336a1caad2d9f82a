// The end of the time that a check may take, on the clock that nobody sets.
#pragma once

#include <algorithm>
#include <chrono>
#include <string>

namespace room {

class Deadline {
public:
    using Clock = std::chrono::steady_clock;

    explicit Deadline(std::chrono::milliseconds limit) : limit_(limit), end_(Clock::now() + limit) {}

    [[nodiscard]] std::chrono::milliseconds Left() const {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now());
        return std::max(left, std::chrono::milliseconds(0));
    }
    [[nodiscard]] bool IsOver() const { return Left().count() == 0; }

    // What is left, in equal parts: the deadline of the first one.
    [[nodiscard]] Deadline Share(std::size_t parts) const { return Deadline(Left() / std::max<std::size_t>(parts, 1)); }

    // The whole time, for a text: "5 s", "2.5 s".
    [[nodiscard]] std::string Text() const {
        const auto tenths = std::max<long long>((limit_.count() + 50) / 100, 1);
        const std::string fraction = tenths % 10 == 0 ? "" : "." + std::to_string(tenths % 10);
        return std::to_string(tenths / 10) + fraction + " s";
    }

private:
    std::chrono::milliseconds limit_;
    Clock::time_point end_;
};

}  // namespace room
