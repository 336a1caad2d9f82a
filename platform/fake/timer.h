// The timers' state, as Reset sees it.
#pragma once

#include "fake/scheduler.h"

namespace kivo::fake {

/// Deletes all timers and ends the manager thread. Call it before the scheduler is adopted anew.
void ResetTimers(Lock& lock);

}  // namespace kivo::fake
