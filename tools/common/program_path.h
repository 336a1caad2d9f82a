// Files of the same installation, found from the place of the running program: an installation may have been moved.
#pragma once

#include <string>

#include "common/error.h"

namespace ominspect {

// The path of a file that is named relative to the folder of the running program.
Result<std::string> BesideProgram(const std::string& relative);

}  // namespace ominspect
