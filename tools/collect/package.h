// The package: the area's files and the manifest in one archive.
#pragma once

#include <functional>
#include <string>

#include "common/output_file.h"
#include "manifest.h"
#include "packer.h"

namespace ominspect::collect {

struct Package {
    PackedTree packed;
    std::string manifest;  // the text of manifest.json
};

// Packs the collection's area and gives the file its name: "<name>/files/..." and, last, "<name>/manifest.json", since
// it holds the checksums of what was really packed. `name` is the file's without its ending. `since` is when the
// collection began; `goOn` is asked now and then, and false is the error Cancelled. After an error the file has no
// name.
Result<Package> WritePackage(OutputFile& file, const Collection& collection, const timespec& since,
                             const std::function<bool(const PackedTree&)>& goOn);

}  // namespace ominspect::collect
