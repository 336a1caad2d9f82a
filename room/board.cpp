// Not looked at yet.
#include "item.h"

namespace room {
namespace {

Finding NotYet(const Settings& /*settings*/) {
    return Unknown("this version does not look at it yet");
}

constexpr Item kItems[] = {
    {"bsp_mainboard_ft",
     "temperatures and fans against their limits, memory errors, throttling, disk health and hardware errors since the "
     "start",
     NotYet},
};

}  // namespace

std::span<const Item> BoardItems() {
    return kItems;
}

}  // namespace room
