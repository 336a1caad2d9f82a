// Logging in a program that has not opened its log.
#include "base/log.h"
#include "support/platform_test.h"

namespace {

using LogBeforeInitTest = support::PlatformTest;

}  // namespace

TEST_F(LogBeforeInitTest, PassesTheZeroHandle) {
    InspectModuleLog(1, "u", 2, 3, "text");
    InspectLog(1, "u", 3, "text");
    ASSERT_EQ(kivo::fake::Journal().size(), 2U);
    EXPECT_EQ(kivo::fake::Journal()[0].handle, 0);
    EXPECT_EQ(kivo::fake::Journal()[1].handle, 0);
}
