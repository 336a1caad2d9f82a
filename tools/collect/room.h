// Whether there is room for what is to be copied.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "entry.h"

namespace ominspect::collect {

// Bytes that this user can still write where the path is, or will be; nothing when the system does not tell.
std::optional<std::uint64_t> FreeBytes(const std::string& path);

// Bytes of the old copies that the entries' copies replace.
std::uint64_t ReplacedBytes(const std::vector<Entry>& entries);

}  // namespace ominspect::collect
