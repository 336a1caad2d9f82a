// The product's hook for logs of its own (InspectCollectVendorLog of ominspect/collect.h), called before the entries.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "common/end_signals.h"
#include "entry.h"

namespace ominspect::collect {

struct VendorReport {
    int result = 0;      // what the hook returned
    std::string remark;  // what else went wrong; may be empty
    FirstOf<std::string> messages;

    bool IsGood() const { return result == 0 && remark.empty(); }
};

// Calls it in a process of its own, until the limit or the first signal. Nothing when a second one gave up.
std::optional<VendorReport> CallVendorHook(EndSignals& signals, std::chrono::seconds limit = std::chrono::minutes(1));

}  // namespace ominspect::collect
