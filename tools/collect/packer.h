// Puts a tree of files into an archive and tells what it put there.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <sys/stat.h>

#include "archive_writer.h"
#include "entry.h"
#include "redaction.h"

namespace ominspect::collect {

// Paths are relative to the tree, as bytes.
struct PackedFile {
    std::string path;
    std::uint64_t bytes = 0;
    std::string sha256;  // of the bytes in the archive
    timespec modified{};
    bool older = false;                   // it was in the tree before
    std::string note;                     // what happened to it while it was packed; else empty
    std::optional<std::uint64_t> masked;  // secrets, in a text; nothing where none were looked for
    bool binary = false;                  // no text: none were looked for
};

struct PackedLink {
    std::string path;
    std::string target;
};

struct PackedTree {
    std::vector<PackedFile> files;
    std::vector<PackedLink> links;
    std::vector<Failure> leftOut;
    std::uint64_t folders = 0;
    std::uint64_t bytes = 0;
};

struct PackOptions {
    std::string folder;                               // what the names in the archive begin with
    timespec since{};                                 // files last changed before are marked as older
    std::function<bool(const struct stat&)> exclude;  // files that are passed over without a word
    std::function<bool(const PackedTree&)> goOn;      // asked now and then; false gives up
    const Redaction* redaction = nullptr;             // masks secrets in texts; null leaves all as it is
};

// Packs what lies below `root`, sorted by name in each folder. Links are stored as links and never followed. What is
// neither file, folder nor link is left out, and so is what cannot be read. A file that shrinks or cannot be read to
// its end is filled up with zeros and a file that grows is cut, so that the archive stays whole; the note says so. A
// `root` that does not exist is an empty tree. Fails with the archive's error, or with Cancelled when `goOn` returned
// false.
std::optional<Error> PackTree(const std::string& root, const PackOptions& options, ArchiveWriter& archive,
                              PackedTree& packed);

}  // namespace ominspect::collect
