// The command collect: gathers the device's logs into one package, without the server.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/command_line.h"

namespace ominspect::collect {

struct CollectOptions {
    std::vector<std::string> sources;   // empty: the configured entries
    std::string config;                 // of another configuration file; empty: the device's
    std::string area;                   // empty: the device's, or a temporary one for sources
    std::string output;                 // empty: a name with host and time
    bool force = false;                 // replaces a package that exists
    std::uint32_t limit = 5;            // seconds, for each source
    std::uint32_t totalLimit = 0;       // seconds, for all entries together; 0: none
    std::uint64_t maxSize = 0;          // bytes that are copied; 0: no limit
    std::vector<std::string> exclude;   // patterns of fnmatch(3)
    bool redact = true;                 // masks secrets in texts
    std::vector<std::string> patterns;  // files of further patterns for that
    bool dryRun = false;                // only says what would be copied
    bool json = false;
};

// Says on standard output what was collected, and on standard error what went wrong.
ExitCode RunCollect(const CollectOptions& options);

}  // namespace ominspect::collect
