// The time at the head of a log line.
#include <cstdlib>
#include <ctime>

#include <gtest/gtest.h>

#include "log_client/line.h"

namespace {

using kivo::log::TimeText;

class TimeTextTest : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("TZ", "UTC-2", 1);
        tzset();
    }

    TimeText text_;
};

constexpr time_t kSecond = 1'714'566'896;  // 2024-05-01 12:34:56 UTC

}  // namespace

TEST_F(TimeTextTest, IsLocalTimeWithMilliseconds) {
    EXPECT_EQ(text_.Of({kSecond, 789'999'999}), "2024-05-01 14:34:56.789");
}

TEST_F(TimeTextTest, FollowsTheMillisecondsWithinASecond) {
    (void)text_.Of({kSecond, 999'000'000});
    EXPECT_EQ(text_.Of({kSecond, 7'000'000}), "2024-05-01 14:34:56.007");
    EXPECT_EQ(text_.Of({kSecond, 120'000'000}), "2024-05-01 14:34:56.120");
}

TEST_F(TimeTextTest, FollowsTheSecondsForwardsAndBackwards) {
    (void)text_.Of({kSecond, 0});
    EXPECT_EQ(text_.Of({kSecond + 1, 0}), "2024-05-01 14:34:57.000");
    EXPECT_EQ(text_.Of({kSecond - 57, 0}), "2024-05-01 14:33:59.000");
}

TEST_F(TimeTextTest, KnowsTheFirstSecondOfTheEpoch) {
    EXPECT_EQ(text_.Of({0, 0}), "1970-01-01 02:00:00.000");
}
