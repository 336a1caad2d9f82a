// The owner on the message bus: joins it, registers the items, serves them until told to end.
#pragma once

#include <optional>
#include <string>

#include "config.h"

namespace ominspect::owner {

// Blocks the signals that end the owner (SIGTERM, SIGINT, SIGHUP) and sets those right that it may have
// inherited. To be called before any thread is created.
void PrepareSignals();

// Serves until one of these signals: then every command is ended and reported, the items are taken back, and
// nothing is returned. Else why it cannot go on: the bus or its name is not to be had, or the bus was lost.
std::optional<std::string> Serve(const OwnerConfig& config);

}  // namespace ominspect::owner
