// What the user allows a collection to take.
#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace ominspect::collect {

struct CopyRules {
    std::string area;                  // the folder that everything is copied into, in its plain form
    std::vector<std::string> exclude;  // patterns of fnmatch(3)
    std::string package;               // the unfinished package's path, links followed: it never goes into itself
    std::uint64_t bytesLeft = std::numeric_limits<std::uint64_t>::max();  // that may be copied
    bool dryRun = false;                                                  // count only, and change nothing

    // Whether a pattern matches the path below its source, or its last name alone.
    bool Excludes(const std::string& path) const;
};

}  // namespace ominspect::collect
