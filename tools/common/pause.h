// A sleep that a stop ends.
#pragma once

#include <chrono>
#include <stop_token>

namespace ominspect {

// Sleeps so long, or until the stop is asked for; false in the latter case.
bool Pause(std::chrono::milliseconds time, const std::stop_token& stop);

}  // namespace ominspect
