// Where the entries of a collection come from.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "entry.h"

namespace ominspect::collect {

struct Entries {
    std::vector<Entry> list;
    std::vector<std::string> messages;  // what the configuration's loader had to say
    std::string error;                  // not empty: wrong use
};

// Those of the device's configuration file.
Entries ConfiguredEntries();

// Those of another configuration file; one that cannot be read is an error.
Entries EntriesOfFile(const std::string& path);

// Files and folders that the user names, each to be copied to its own name below `area`, made unique there. A path that
// has no room in the 255 bytes of the copy functions is an error, and so is a folder that holds the area.
Entries EntriesOfSources(const std::vector<std::string>& sources, const std::string& area, std::uint32_t limit);

}  // namespace ominspect::collect
