// The platform clock.
#include "kivo/os_time.h"

#include <gtest/gtest.h>

#include "platform_control.h"

namespace {

class OsTimeTest : public support::ContractTest {};

}  // namespace

TEST_F(OsTimeTest, SystemTimeIsMillisecondsOfTheSystemClock) {
    const uint64_t before = support::SystemClock();
    const uint64_t now = OsGetSystemTime();
    EXPECT_GE(now, before);
    EXPECT_LE(now, support::SystemClock());
    EXPECT_GT(now, 1600000000000U);  // after 2020, in milliseconds
    EXPECT_LT(now, 16000000000000U);
}
