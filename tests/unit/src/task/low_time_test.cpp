// The first identifier when the low 32 bits of the system time are in the reserved range.
#include "support/platform_test.h"
#include "task/inspacet_task.h"

namespace {

using InspacetTaskLowTimeTest = support::PlatformTest;

}  // namespace

TEST_F(InspacetTaskLowTimeTest, TheFirstIdentifierIs17) {
    kivo::fake::SetNow((uint64_t{399} << 32U) + 3);
    EXPECT_EQ(InspacetTask::CreateTask([](TaskData& /*task*/) {}, false), 17U);
    EXPECT_EQ(InspacetTask::CreateTask([](TaskData& /*task*/) {}, false), 18U);
}
