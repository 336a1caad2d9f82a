// Functions for everything that waits under a limit.
#pragma once

#include <chrono>
#include <optional>

#include "ominspect/client/error.h"
#include "ominspect/client/limit.h"

namespace ominspect::client {

// Cancelled or TimeLimit, when the limit has ended.
std::optional<Error> EndOf(const Limit& limit);

// Sleeps, but not beyond the end of the limit.
void Pause(std::chrono::milliseconds time, const Limit& limit);

}  // namespace ominspect::client
