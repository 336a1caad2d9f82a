// What owners do when they are asked to run an item.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "ominspect/records.h"

namespace sim {

/// Reports a result to the server, as its owner's library does it.
using Report = std::function<void(const tagKivoOmInspectionResult& result)>;

tagKivoOmInspectionResult MakeRecord(const std::string& name, const std::string& status, const std::string& text);

/// The same with a text that nobody else says, which the owner is about to tell the server, once.
tagKivoOmInspectionResult Utter(const std::string& name, const std::string& status, const std::string& text);

/// Runs an item: fills the result, at once or after a while. "running": `report` is called later, on another thread,
/// once or more often; or never.
void RunOwned(const std::string& item, const std::string& request, tagKivoOmInspectionResult& result,
              const Report& report);

}  // namespace sim
