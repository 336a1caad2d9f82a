// Not looked at yet.
#include "item.h"

namespace room {
namespace {

Finding NotYet(const Settings& /*settings*/) {
    return Unknown("this version does not look at it yet");
}

constexpr Item kItems[] = {
    {"mediactrl_inspect_aux_out_ft", "the second display: connector, display, mode", NotYet},
    {"mediactrl_inspect_main_out_ft", "the first display: connector, display, mode", NotYet},
    {"mediactrl_inspect_main_in_ft", "the capture input, such as HDMI: there, and with a signal", NotYet},
};

}  // namespace

std::span<const Item> MediaItems() {
    return kItems;
}

}  // namespace room
