// Single-item requests.
#pragma once

#include <cstdint>
#include <string>

#include "base/records.h"

namespace Inspect {

/// Carries out one request text: runs the item, stops it ("cmd" is "stop") or resets it ("done"). Non-zero: `item`
/// holds the final answer; 0: the run goes on, and its result must be waited for. Any thread.
uint8_t InspectSingle(const std::string& requestJson, tagKivoOmInspectionDataItem& item);

}  // namespace Inspect
