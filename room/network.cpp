// Not looked at yet.
#include "item.h"

namespace room {
namespace {

Finding NotYet(const Settings& /*settings*/) {
    return Unknown("this version does not look at it yet");
}

constexpr Item kItems[] = {
    {"devm_wired_connect_ft",
     "carrier and address of the wired interface, the gateway, the name servers, and whether the clock is synchronised",
     NotYet},
    {"devm_connect_ap_ft", "association of the wireless interface with an access point, and its signal", NotYet},
    {"devm_lan_mode_ft", "speed and duplex of the wired interface against what is expected", NotYet},
};

}  // namespace

std::span<const Item> NetworkItems() {
    return kItems;
}

}  // namespace room
