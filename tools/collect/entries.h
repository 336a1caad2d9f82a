// Where the entries of a collection come from.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/error.h"
#include "entry.h"

namespace ominspect::collect {

struct Entries {
    std::vector<Entry> list;
    std::vector<std::string> messages;  // of the configuration's loader
};

// Those of the device's configuration file.
Result<Entries> ConfiguredEntries();

// Those of another configuration file; one that cannot be read is an error.
Result<Entries> EntriesOfFile(const std::string& path);

// Files and folders that the user names, each to be copied to its own name below `area`, made unique there. A path that
// has no room in the 255 bytes of the copy functions is an error, and so is a folder that holds the area.
Result<Entries> EntriesOfSources(const std::vector<std::string>& sources, const std::string& area, std::uint32_t limit);

}  // namespace ominspect::collect
