// Times as people and programs read them.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "common/times.h"

using namespace ominspect;
using namespace std::chrono_literals;

namespace {

constexpr TimePoint kTime{std::chrono::milliseconds(1000000000007)};

TEST(Times, OfProgramsAreUtc) {
    EXPECT_EQ(UtcTime(kTime), "2001-09-09T01:46:40.007Z");
    EXPECT_EQ(UtcSecond(kTime), "2001-09-09T01:46:40Z");
    EXPECT_EQ(UtcName(kTime), "20010909T014640Z");
}

TEST(Times, OfPeopleAreLocal) {
    ASSERT_EQ(setenv("TZ", "EAST-2", 1), 0);
    tzset();
    EXPECT_EQ(LocalTime(kTime), "03:46:40.007");
    EXPECT_EQ(LocalDate(kTime), "2001-09-09 03:46");
}

// From 1684 to 2255.
TEST(Times, BeyondWhatATimePointHoldsAreRefused) {
    for (const char* text : {"1015-01-31T12:35:56Z", "9999-12-31 23:59", "2300-01-01", "1000000000d", "200000d"}) {
        EXPECT_FALSE(ParseTime(text, TimePoint())) << text;
    }
    EXPECT_TRUE(ParseTime("1700-01-01T00:00:00Z", TimePoint()));
    EXPECT_TRUE(ParseTime("2250-12-31T23:59:59Z", TimePoint()));
    EXPECT_TRUE(ParseTime("100000d", TimePoint()));
    // To the second.
    EXPECT_EQ(ParseTime("1000000000s", TimePoint()), TimePoint(-1000000000s));
    EXPECT_EQ(ParseTime("150000000m", TimePoint()), TimePoint(-9000000000s));
    EXPECT_EQ(ParseTime("1684-10-19T08:00:00Z", TimePoint()), TimePoint(-9000000000s));
    EXPECT_EQ(ParseTime("2255-03-14T16:00:00Z", TimePoint()), TimePoint(9000000000s));
    for (const char* text : {"1000000001s", "150000001m", "1684-10-19T07:59:59Z", "2255-03-14T16:00:01Z"}) {
        EXPECT_FALSE(ParseTime(text, TimePoint())) << text;
    }
}

TEST(Times, AreReadAsAgesAndAsDates) {
    const TimePoint now{1769862896s};  // 2026-01-31T12:34:56Z
    EXPECT_EQ(ParseTime("90s", now), now - 90s);
    EXPECT_EQ(ParseTime("0s", now), now);
    EXPECT_EQ(ParseTime("15m", now), now - 15min);
    EXPECT_EQ(ParseTime("2h", now), now - 2h);
    EXPECT_EQ(ParseTime("3d", now), now - 72h);
    EXPECT_EQ(ParseTime("2026-01-31T12:34:56Z", TimePoint()), now);
    ASSERT_EQ(setenv("TZ", "UTC-2", 1), 0);
    tzset();
    EXPECT_EQ(ParseTime("2026-01-31 14:34:56", TimePoint()), now);
    EXPECT_EQ(ParseTime("2026-01-31 14:34", TimePoint()), now - 56s);
    EXPECT_EQ(ParseTime("2026-01-31", TimePoint()), now - 14h - 34min - 56s);
    ASSERT_EQ(setenv("TZ", "WINTER-1SUMMER,M3.5.0,M10.5.0/3", 1), 0);
    tzset();
    EXPECT_EQ(ParseTime("2026-01-31 13:34", TimePoint()), now - 56s);
    EXPECT_EQ(ParseTime("2026-07-31 14:34", TimePoint()), now - 56s + 24h * 181);
    for (const char* text : {"", "2", "2x", "h", "-2h", "2hh", "2026-01-31T", "2026-01-31 14:34 x", "yesterday"}) {
        EXPECT_FALSE(ParseTime(text, now)) << text;
    }
}

}  // namespace
