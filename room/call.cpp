// Not looked at yet.
#include "item.h"

namespace room {
namespace {

Finding NotYet(const Settings& /*settings*/) {
    return Unknown("this version does not look at it yet");
}

constexpr Item kItems[] = {
    {"conf_dndswitch_ft", "the settings and servers of calls", NotYet},
    {"conf_autoanswermute_ft", "the settings and servers of calls", NotYet},
    {"conf_defaultcallband_ft", "the settings and servers of calls", NotYet},
    {"conf_maxcallinband_ft", "the settings and servers of calls", NotYet},
    {"conf_h323_ft", "the settings and servers of calls", NotYet},
    {"conf_sip_ft", "the settings and servers of calls", NotYet},
    {"conf_conferenceserver_ft", "the settings and servers of calls", NotYet},
    {"conf_ldapserver_ft", "the settings and servers of calls", NotYet, 10, false},
};

}  // namespace

std::span<const Item> CallItems() {
    return kItems;
}

}  // namespace room
