// How this platform's libraries connect to the bus.
#pragma once

#include "msg/handles.h"

namespace kivo::msg {

// Connects to the bus at OsMsgBusAddress. A negative errno on failure.
int OpenBus(BusPtr& bus);

}  // namespace kivo::msg
