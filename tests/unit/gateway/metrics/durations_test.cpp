// The histogram of durations: bounds belong to the bucket below them, and buckets hold those before them.
#include "metrics/durations.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

using namespace ominspect::gateway;
using namespace std::chrono_literals;

namespace {

using Counts = std::array<std::uint64_t, 8>;

TEST(Durations, AreNoneAtFirst) {
    const Durations durations;
    EXPECT_EQ(durations.Cumulated(), (Counts{}));
    EXPECT_EQ(durations.SumSeconds(), 0);
}

TEST(Durations, ABoundIsWithinItsBucket) {
    Durations durations;
    durations.Add(50ms);
    EXPECT_EQ(durations.Cumulated(), (Counts{1, 1, 1, 1, 1, 1, 1, 1}));
    durations.Add(51ms);
    EXPECT_EQ(durations.Cumulated(), (Counts{1, 2, 2, 2, 2, 2, 2, 2}));
    durations.Add(300s);
    EXPECT_EQ(durations.Cumulated(), (Counts{1, 2, 2, 2, 2, 2, 3, 3}));
    durations.Add(300001ms);
    EXPECT_EQ(durations.Cumulated(), (Counts{1, 2, 2, 2, 2, 2, 3, 4}));
    EXPECT_DOUBLE_EQ(durations.SumSeconds(), 600.102);
}

TEST(Durations, EachBoundIsWrittenAsItIs) {
    for (const DurationBound& bound : kDurationBounds) {
        EXPECT_EQ(std::chrono::duration<double>(bound.most).count(), std::stod(bound.text)) << bound.text;
    }
}

}  // namespace
