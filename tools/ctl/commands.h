// The commands of ominspectctl; each prints its answer and returns the exit code.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "exit_code.h"

namespace ominspect::ctl {

struct RunOptions {
    std::vector<std::string> items;
    std::string cmd;
    std::chrono::seconds limit{310};  // the server gives an item's owner 300 s
    bool json = false;
};

struct StateOptions {
    std::string item;
    std::chrono::seconds limit{10};
    bool json = false;
};

struct WatchOptions {
    std::uint64_t count = 0;        // events after which to end; 0: none
    std::chrono::seconds limit{0};  // 0: none
    bool json = false;
};

ExitCode Run(const RunOptions& options);
ExitCode State(const StateOptions& options);
ExitCode Watch(const WatchOptions& options);

}  // namespace ominspect::ctl
