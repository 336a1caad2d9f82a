#include "copy_rules.h"

#include <algorithm>

#include <fnmatch.h>

namespace ominspect::collect {

bool CopyRules::Excludes(const std::string& path) const {
    const std::string name = path.substr(path.rfind('/') + 1);
    return std::any_of(exclude.begin(), exclude.end(), [&](const std::string& pattern) {
        return fnmatch(pattern.c_str(), path.c_str(), 0) == 0 || fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
    });
}

}  // namespace ominspect::collect
