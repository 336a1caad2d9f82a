// The owner on the message bus: joins it, registers the items, serves them until told to end.
#pragma once

#include <optional>

#include "common/error.h"
#include "items/config.h"

namespace ominspect::items {

// Serves until SIGTERM, SIGINT or SIGHUP, which it blocks for good; then it ends and reports every command and takes
// the items back. It fails when it cannot join the bus under its name, and when the bus is lost. To be called before
// any thread is made; throws std::system_error. `program` stands before what is said on standard error.
std::optional<Error> Serve(const char* program, const OwnerConfig& config);

}  // namespace ominspect::items
