// Times as people and programs read them.
#include "times.h"

#include <gtest/gtest.h>

using namespace ominspect::ctl;

namespace {

TEST(UtcTime, HasMilliseconds) {
    EXPECT_EQ(UtcTime(TimePoint(std::chrono::milliseconds(1000000000007))), "2001-09-09T01:46:40.007Z");
}

}  // namespace
