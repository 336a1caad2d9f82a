// What Reset does to each part of the fake.
#pragma once

#include "fake/scheduler.h"

namespace kivo::fake {

void ResetJournal();
void ResetFailures();

/// Forgets the scripted peers.
void ResetScripts();

/// Forgets all processes but the test's own, which becomes like new. None of their threads may live.
void ResetProcesses();

/// Deletes all timers and ends their manager's thread, which must not run a callback now.
void ResetTimers(Lock& lock);

/// Sets all counts to zero; blocks that are still allocated are not counted any more.
void ResetMemory();

void ResetMonitor();
void ResetLogClient();
void ResetEngineClient();

}  // namespace kivo::fake
