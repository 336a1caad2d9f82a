// A configuration as text for people.
#pragma once

#include <string>

#include "config.h"

namespace ominspect::owner {

// What an owner with this configuration does, one line per item, each with a line end; a note stands beside
// every command that cannot be run at present.
std::string Describe(const OwnerConfig& config);

}  // namespace ominspect::owner
