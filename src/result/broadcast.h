// The events that the server broadcasts about runs.
#pragma once

#include "ominspect/records.h"

/// Event 8: a run began or ended. A refused broadcast is logged and changes nothing else.
void BroadcastRun(const tagKivoOmInspectionResult& result);

/// Event 9: the server became busy or idle.
void BroadcastBusy();
void BroadcastIdle();
