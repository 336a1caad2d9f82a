// The gateway's parts, put together: what watches, what remembers, and those who show it.
#pragma once

#include <optional>

#include "settings.h"

namespace ominspect::gateway {

// Serves until SIGTERM, SIGINT or SIGHUP. It fails when nothing could be shown or remembered at all: a place to listen
// that must not be served as it is configured. To be called before any thread is made; throws std::system_error.
std::optional<Error> Serve(const Settings& settings);

}  // namespace ominspect::gateway
