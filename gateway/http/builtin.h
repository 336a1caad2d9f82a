// The files that are within the program: the page, and the description of the interface.
#pragma once

#include <optional>
#include <string>

#include "http/message.h"

namespace ominspect::gateway {

// The file of this path of the page; nothing when there is none.
std::optional<Response> BuiltinFile(const std::string& path);

Response OpenApiDocument();

}  // namespace ominspect::gateway
