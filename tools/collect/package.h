// The package: the area's files and, as its last member, the manifest that tells what a collection came to.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "common/output_file.h"
#include "entry.h"
#include "packer.h"
#include "vendor_hook.h"

namespace ominspect::collect {

// What is known of a collection before it is packed.
struct Collection {
    std::string version;        // of the tool
    std::string host;           // the device's name
    std::string file;           // the package's file name
    std::string area;           // the folder that was packed
    std::string configuration;  // where the entries come from: a path, or "the command line"
    std::chrono::system_clock::time_point started;
    std::chrono::system_clock::time_point collected;  // when the copying was over
    bool interrupted = false;                         // the user ended it early
    bool redacted = false;                            // secrets in texts are masked
    bool dryRun = false;                              // nothing was copied, only counted
    std::vector<std::string> messages;                // of the configuration's loader
    VendorReport vendor;
    std::vector<EntryReport> entries;
};

// Whether everything that was asked for is in the package, unchanged.
bool IsComplete(const Collection& collection, const PackedTree& packed);

// The manifest as one JSON document, indented, without the last line end. Paths and texts from outside are escaped as
// text::Escaped does, so that different names stay different. Throws std::bad_alloc.
std::string ManifestText(const Collection& collection, const PackedTree& packed);

struct Package {
    PackedTree packed;
    std::string manifest;  // the text of manifest.json
};

// Packs the collection's area as "NAME/files/..." and "NAME/manifest.json", where NAME is that of the file without its
// ending, and gives the file its name. The manifest comes last, since it holds the checksums of what was really packed.
// `since` is when the collection began. `redaction` masks secrets in texts; null leaves all as it is. `goOn` is asked
// now and then; when it returns false, the error is Cancelled. After an error nothing is left under the file's name.
Result<Package> WritePackage(OutputFile& file, const Collection& collection, const timespec& since,
                             const Redaction* redaction, const std::function<bool(const PackedTree&)>& goOn);

}  // namespace ominspect::collect
