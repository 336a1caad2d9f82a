// The guard at the functions that the platform calls.
#include "base/guard.h"

#include <new>

#include "support/journal_text.h"
#include "support/platform_test.h"

using support::Lines;

namespace {

using GuardTest = support::PlatformTest;

}  // namespace

TEST_F(GuardTest, RunsTheBody) {
    bool ran = false;
    EXPECT_TRUE(RunGuarded({"u", 9}, "job", [&ran] { ran = true; }));
    EXPECT_TRUE(ran);
    EXPECT_EQ(support::Steps(), Lines{});
}

TEST_F(GuardTest, LogsWhatTheBodyThrew) {
    EXPECT_FALSE(RunGuarded({"u", 9}, "job", [] { throw std::bad_alloc(); }));
    EXPECT_EQ(support::Steps(), (Lines{"1 u 9: job given up: std::bad_alloc"}));
}
