// Files that hold secrets: tokens, passwords, keys.
#pragma once

#include <optional>
#include <string>

#include "common/error.h"

namespace ominspect::gateway {

// An error when others than the file's owner and group can read or change it. A missing file is no error.
std::optional<Error> CheckSecret(const std::string& path);

}  // namespace ominspect::gateway
