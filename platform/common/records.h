// Which records of the interface are as their headers describe them.
#pragma once

#include "kivo/om_inspect_engine_client.h"
#include "kivo/om_log_client.h"
#include "kivo/os_timer.h"

namespace kivo {

bool IsValid(const OsTimerParam& timer);
bool IsValid(const KivoOmLogCreation& log);
bool IsValid(const InspectHandlerRecord& item);
bool IsValid(const tagKivoOmInspectionResult& result);

}  // namespace kivo
