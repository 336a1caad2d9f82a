// Looks at items beside each other, each in a process of its own.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "item.h"
#include "ominspect/records.h"

namespace room {

// The results in the order of the items; nothing when Ctrl-C or SIGTERM came first. `command` is the program with the
// arguments that come before the item's name. To be called before any thread is made.
std::optional<std::vector<tagKivoOmInspectionResult>> LookOnce(const std::vector<Item>& items,
                                                               const std::vector<std::string>& command);

}  // namespace room
