// Which faults a run has, and when the next of each kind comes.
#pragma once

#include <cstdint>

#include "world/outcome.h"
#include "world/scheduler.h"

namespace sim {

/// From now on one in `calls` chances, on average, becomes a fault of that kind; 0: none.
void SetFault(Fault fault, uint32_t calls);
void StopFaults();

/// A chance for a fault: true if it is to happen now. It is counted.
bool IsDue(Fault fault);

/// How long a message is under way.
Micros Delay();

/// How fast the bus is: 0 always at once; the larger, the later messages may come.
void SetBusSlowness(uint32_t slowness);

}  // namespace sim
