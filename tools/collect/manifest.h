// What a package says about itself: manifest.json.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "entry.h"
#include "packer.h"

namespace ominspect::collect {

// All of a collection but the packed files.
struct Collection {
    std::string version;        // of the tool
    std::string host;           // the device's name
    std::string file;           // the package's file name
    std::string area;           // the folder that was packed
    std::string configuration;  // where the entries come from: a path, or "the command line"
    std::chrono::system_clock::time_point started;
    std::chrono::system_clock::time_point collected;  // when the copying was over
    bool interrupted = false;                         // the user ended it early
    std::vector<std::string> messages;                // of the configuration's loader
    std::vector<EntryReport> entries;
};

// Whether everything that was asked for is in the package, unchanged.
bool IsComplete(const Collection& collection, const PackedTree& packed);

// The manifest as one JSON document, indented, without the last line end. Paths and texts from outside are escaped as
// text::Escaped does, so that different names stay different. Throws std::bad_alloc.
std::string ManifestText(const Collection& collection, const PackedTree& packed);

}  // namespace ominspect::collect
