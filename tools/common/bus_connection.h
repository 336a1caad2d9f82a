// A program's own connection to the bus, beside the one that the message layer has: for what is no message of a
// process.
#pragma once

#include <chrono>
#include <memory>

#include <systemd/sd-bus.h>

#include "common/freed.h"

namespace ominspect {

// Without writing what waits: a daemon that hangs would be waited for without end.
using BusConnection = std::unique_ptr<sd_bus, Freed<sd_bus_close_unref>>;
using BusMessage = std::unique_ptr<sd_bus_message, Freed<sd_bus_message_unref>>;

// Connects to the bus at OsMsgBusAddress; each call over the connection waits so long for its reply. A negative errno
// on failure. As all of sd-bus, for one thread at a time.
int OpenBus(BusConnection& bus, std::chrono::microseconds callLimit);

}  // namespace ominspect
