// A connection to the bus beside the message layer's.
#include "common/bus_connection.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>

#include "support/private_bus.h"

using namespace ominspect;
using namespace std::chrono_literals;

namespace {

TEST(BusConnectionTest, IsAClientOfTheBusWithItsOwnLimitAndTakesNoDescriptors) {
    const support::PrivateBus place;
    BusConnection bus;
    ASSERT_GE(OpenBus(bus, 2s), 0);
    const char* name = nullptr;
    ASSERT_GE(sd_bus_get_unique_name(bus.get(), &name), 0) << "the daemon has greeted it";
    EXPECT_EQ(name[0], ':');
    EXPECT_EQ(sd_bus_can_send(bus.get(), SD_BUS_TYPE_UNIX_FD), 0);
    std::uint64_t limit = 0;
    ASSERT_GE(sd_bus_get_method_call_timeout(bus.get(), &limit), 0);
    EXPECT_EQ(limit, 2000000U);
}

TEST(BusConnectionTest, TellsThatThereIsNoBus) {
    ASSERT_EQ(setenv("KIVO_BUS_ADDRESS", "unix:path=/no/bus", 1), 0);
    BusConnection bus;
    EXPECT_LT(OpenBus(bus, 2s), 0);
}

}  // namespace
