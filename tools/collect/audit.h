// What a folder's copy lacks.
#pragma once

#include <functional>
#include <set>
#include <string>

#include "entry.h"

namespace ominspect::collect {

// Compares a source folder with its copy, which came to its end, and tells what is not there and not among the paths in
// `known`: folders that cannot be read, entries after a path that was too long (both are passed over without a word),
// and whatever came meanwhile.
void AuditFolder(const std::string& source, const std::string& copy, const std::set<std::string>& known,
                 const std::function<void(Failure)>& tell);

}  // namespace ominspect::collect
