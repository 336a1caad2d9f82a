// The owner on the message bus: joins it, registers the items, serves them until told to end.
#pragma once

#include <optional>

#include "config.h"

namespace ominspect::owner {

// Serves until SIGTERM, SIGINT or SIGHUP, which it blocks for good: then every command is ended and reported, the items
// are taken back, and there is no error. Else the reason why it cannot go on: the bus or its name cannot be had, or the
// bus was lost. To be called before any thread is made; throws std::system_error.
std::optional<Error> Serve(const OwnerConfig& config);

}  // namespace ominspect::owner
