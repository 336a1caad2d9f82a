// Echo requests, as far as the system lets a user send them without privileges.
#pragma once

#include <string>

#include "common/error.h"
#include "network/network_probe.h"

namespace room {

// Sends five within a quarter of a second, and waits a second for the last. Fails when the system does not allow it.
ominspect::Result<Echoes> PingAddress(const std::string& address, int linkIndex);

}  // namespace room
