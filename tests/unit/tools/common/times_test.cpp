// Times as people and programs read them.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "common/times.h"

using namespace ominspect;

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

}  // namespace
