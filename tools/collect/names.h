// The names in a folder.
#pragma once

#include <string>
#include <vector>

namespace ominspect::collect {

// Fills in the names in the folder `path`, which may be relative to the open folder `base` (openat(2)), without "." and
// "..", sorted. 0, or the error number that says why not all could be read.
int SortedNames(int base, const char* path, std::vector<std::string>& names);

}  // namespace ominspect::collect
