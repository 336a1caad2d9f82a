// The package: the area's files and the manifest in one archive.
#pragma once

#include <functional>
#include <string>

#include "manifest.h"
#include "output_file.h"
#include "packer.h"

namespace ominspect::collect {

struct Package {
    PackedTree packed;
    std::string manifest;  // the text of manifest.json
    std::string error;     // why there is none; else empty
};

// Packs the collection's area and gives the file its name: "<name>/files/..." and, last, "<name>/manifest.json", since
// it holds the checksums of what was really packed. `name` is the file's without its ending. `since` is when the
// collection began; `goOn` is asked now and then, false gives up. The file stays uncommitted after an error.
Package WritePackage(OutputFile& file, const Collection& collection, const timespec& since,
                     const std::function<bool(const PackedTree&)>& goOn);

}  // namespace ominspect::collect
