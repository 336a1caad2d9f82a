// How many messages may go out: so many in each second, and at most a second's worth at once.
#pragma once

#include <algorithm>
#include <chrono>

namespace ominspect::gateway::mqtt {

class Rate {
public:
    using Clock = std::chrono::steady_clock;

    Rate(unsigned perSecond, Clock::time_point now)
        : step_(std::chrono::nanoseconds(std::chrono::seconds(1)) / perSecond),
          due_(now - std::chrono::seconds(1) + step_) {}

    bool Take(Clock::time_point now) {
        if (now < due_) {
            return false;
        }
        due_ = std::max(due_, now - std::chrono::seconds(1) + step_) + step_;
        return true;
    }

    // When the next one may go.
    Clock::time_point Due() const { return due_; }

private:
    std::chrono::nanoseconds step_;
    Clock::time_point due_;
};

}  // namespace ominspect::gateway::mqtt
