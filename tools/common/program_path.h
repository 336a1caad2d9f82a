// Where a program finds the others of its installation.
#pragma once

#include <string>

#include "common/error.h"

namespace ominspect {

// The path of a program that is named as seen from this one's folder.
Result<std::string> ProgramBeside(const std::string& relative);

}  // namespace ominspect
