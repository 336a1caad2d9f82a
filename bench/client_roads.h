// What the requesters' library makes of messages.
#pragma once

#include <vector>

#include "server_roads.h"

namespace bench {

/// A request as bytes, and a reply as a result.
std::vector<Road> ClientRoads();

}  // namespace bench
