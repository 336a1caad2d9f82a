#include "common/bus_connection.h"

#include <cstdint>

#include "kivo/os_msg.h"

namespace ominspect {

int OpenBus(BusConnection& bus, std::chrono::microseconds callLimit) {
    sd_bus* raw = nullptr;
    int result = sd_bus_new(&raw);
    bus.reset(raw);
    result = result >= 0 ? sd_bus_set_address(raw, OsMsgBusAddress()) : result;
    result = result >= 0 ? sd_bus_set_bus_client(raw, 1) : result;
    // No message here carries descriptors: a peer that sends some could use up this process's own.
    result = result >= 0 ? sd_bus_negotiate_fds(raw, 0) : result;
    result = result >= 0 ? sd_bus_set_method_call_timeout(raw, static_cast<std::uint64_t>(callLimit.count())) : result;
    return result >= 0 ? sd_bus_start(raw) : result;
}

}  // namespace ominspect
