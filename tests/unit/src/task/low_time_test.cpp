// The first identifier when the low 32 bits of the system time are in the reserved range.
#include "support/platform_test.h"
#include "task/inspacet_task.h"

namespace {

using LowTime = support::PlatformTest;

}  // namespace

TEST_F(LowTime, TheFirstIdentifierIs17) {
    kivo::fake::SetNow((uint64_t{399} << 32U) + 3);
    EXPECT_EQ(InspacetTask::CreateTask([](TaskData& /*task*/) {}, false), 17U);
    EXPECT_EQ(InspacetTask::CreateTask([](TaskData& /*task*/) {}, false), 18U);
}
