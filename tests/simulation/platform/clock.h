// The system clock of the simulated device.
#pragma once

#include <cstdint>

namespace sim {

uint64_t SystemMillis();

/// Sets it; no time passes.
void SetClock(uint64_t ms);

}  // namespace sim
