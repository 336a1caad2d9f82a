// Files that hold secrets: tokens, passwords, keys.
#pragma once

#include <optional>
#include <string>

#include "common/error.h"

namespace ominspect::gateway {

// An error when others than the file's owner and group can read or change it. A file that is not there is none.
std::optional<Error> CheckSecret(const std::string& path);

}  // namespace ominspect::gateway
