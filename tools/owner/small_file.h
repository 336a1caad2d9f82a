// Reading a configuration file whole.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace ominspect::owner {

// The contents of a regular file (links followed) of at most `maxSize` bytes; else nothing, and why in `error`.
// Never waits, also not for a pipe's writer.
std::optional<std::string> ReadSmallFile(const std::string& path, std::size_t maxSize, std::string& error);

}  // namespace ominspect::owner
