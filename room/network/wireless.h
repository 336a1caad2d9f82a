// The kernel's wireless interfaces.
#pragma once

#include <vector>

#include "common/error.h"
#include "network/network_probe.h"

namespace room {

// None when the kernel has no wireless part.
ominspect::Result<std::vector<WirelessLink>> ListWirelessLinks();

}  // namespace room
