// Stops at the first step that fails.
#include "msg/open_bus.h"

#include "kivo/os_msg.h"

namespace kivo::msg {

int OpenBus(BusPtr& bus) {
    sd_bus* raw = nullptr;
    int result = sd_bus_new(&raw);
    bus.reset(raw);
    if (result >= 0) {
        result = sd_bus_set_address(raw, OsMsgBusAddress());
    }
    if (result >= 0) {
        result = sd_bus_set_bus_client(raw, 1);
    }
    // No message here carries descriptors: a peer that sends some could use up this process's own.
    if (result >= 0) {
        result = sd_bus_negotiate_fds(raw, 0);
    }
    return result >= 0 ? sd_bus_start(raw) : result;
}

}  // namespace kivo::msg
