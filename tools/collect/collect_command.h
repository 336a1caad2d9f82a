// The command collect: gathers the device's logs into one package, without the server.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/command_line.h"

namespace ominspect::collect {

struct CollectOptions {
    std::vector<std::string> sources;  // empty: the configured entries
    std::string config;                // of another configuration file; empty: the device's
    std::string area;                  // empty: the device's, or a temporary one for sources
    std::string output;                // empty: a name with host and time
    bool force = false;                // replaces a package that exists
    std::uint32_t limit = 5;           // seconds, for each source
    bool json = false;
};

// Says on standard output what was collected, and on standard error what went wrong.
ExitCode RunCollect(const CollectOptions& options);

}  // namespace ominspect::collect
