// What an owner serves: which command is which inspection item.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace ominspect::items {

struct ItemConfig {
    std::string name;
    std::chrono::seconds limit;
    bool isSync;
    std::vector<std::string> argv;  // the command's path first
};

struct OwnerConfig {
    std::string process;
    unsigned maxParallel;           // asynchronous commands that run at the same time
    std::vector<ItemConfig> items;  // 1 to 256
};

}  // namespace ominspect::items
