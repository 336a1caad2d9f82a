// Columns and times.
#include "format.h"

#include <gtest/gtest.h>

using namespace ominspect::ctl;

namespace {

TEST(Table, AlignsAllColumnsButTheLast) {
    EXPECT_EQ(Table({{"A", "LONG", "Z"}, {"\xC3\xA4\xC3\xA4", "b", "c"}}), "A   LONG  Z\n\xC3\xA4\xC3\xA4  b     c");
    EXPECT_EQ(Table({}), "");
}

TEST(CutToWidth, CutsCharactersAndNotBytes) {
    EXPECT_EQ(CutToWidth("\xC3\xA4z", 1), "\xC3\xA4");
    EXPECT_EQ(CutToWidth("\xC3\xA4z", 2), "\xC3\xA4z");
    EXPECT_EQ(CutToWidth("\xC3\xA4z", 9), "\xC3\xA4z");
    EXPECT_EQ(CutToWidth("ab", 0), "");
}

TEST(UtcTime, HasMilliseconds) {
    EXPECT_EQ(UtcTime(TimePoint(std::chrono::milliseconds(1000000000007))), "2001-09-09T01:46:40.007Z");
}

}  // namespace
