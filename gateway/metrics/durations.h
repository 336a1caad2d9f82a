// How long the runs of an item were, as a histogram.
#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>

namespace ominspect::gateway {

// From a check that only reads a file up to one that uses up the five minutes that the server waits at most.
struct DurationBound {
    std::chrono::milliseconds most;
    const char* text;  // in seconds
};
inline constexpr std::array<DurationBound, 7> kDurationBounds{{
    {std::chrono::milliseconds(50), "0.05"},
    {std::chrono::milliseconds(200), "0.2"},
    {std::chrono::seconds(1), "1"},
    {std::chrono::seconds(5), "5"},
    {std::chrono::seconds(30), "30"},
    {std::chrono::seconds(120), "120"},
    {std::chrono::seconds(300), "300"},
}};

class Durations {
public:
    void Add(std::chrono::milliseconds duration) {
        const auto* const bound = std::find_if(kDurationBounds.begin(), kDurationBounds.end(),
                                               [&](const DurationBound& one) { return duration <= one.most; });
        ++counts_[static_cast<std::size_t>(bound - kDurationBounds.begin())];
        sum_ += duration;
    }

    // The runs that took no longer than each bound, and at last all of them.
    std::array<std::uint64_t, kDurationBounds.size() + 1> Cumulated() const {
        std::array<std::uint64_t, kDurationBounds.size() + 1> all{};
        std::uint64_t count = 0;
        for (std::size_t i = 0; i < all.size(); ++i) {
            all[i] = count += counts_[i];
        }
        return all;
    }

    double SumSeconds() const { return std::chrono::duration<double>(sum_).count(); }

private:
    std::array<std::uint32_t, kDurationBounds.size() + 1> counts_{};  // the last one: longer than all bounds
    std::chrono::milliseconds sum_{0};
};

}  // namespace ominspect::gateway
