// How long a call may take.
#pragma once

#include <chrono>
#include <stop_token>
#include <utility>

#pragma GCC visibility push(default)

namespace ominspect::client {

// A time limit, with an optional token by which another thread can end the call early. A call that does not wait at all
// is not possible: the least time is 1 ms.
class Limit {
public:
    using Clock = std::chrono::steady_clock;

    // The time counts from here. More than `kLongest` counts as that.
    template <typename Count, typename Period>
    Limit(std::chrono::duration<Count, Period> time, std::stop_token cancel = {})
        : deadline_(Clock::now() + (time < kLongest ? std::chrono::ceil<Clock::duration>(time) : kLongest)),
          cancel_(std::move(cancel)) {}

    Clock::time_point Deadline() const { return deadline_; }
    const std::stop_token& Cancel() const { return cancel_; }
    bool Cancelled() const { return cancel_.stop_requested(); }

    // The time that is left, rounded up; 0 when it is over.
    std::chrono::milliseconds Left() const {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - Clock::now());
        return left.count() > 0 ? left : std::chrono::milliseconds(0);
    }

    static constexpr std::chrono::hours kLongest{24 * 31};

private:
    Clock::time_point deadline_;
    std::stop_token cancel_;
};

}  // namespace ominspect::client

#pragma GCC visibility pop
