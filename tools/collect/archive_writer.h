// A tar archive in the pax format, compressed with zstd, as a stream: a cover over libarchive.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <sys/stat.h>

#include "common/error.h"

struct archive;
struct archive_entry;

namespace ominspect::collect {

// An error ends the archive: every later call gives it again. Names are bytes: one that is not UTF-8 is stored as it
// is. Used by one thread.
class ArchiveWriter {
public:
    // Takes compressed bytes. An error ends the archive.
    using Sink = std::function<std::optional<Error>(std::string_view data)>;

    explicit ArchiveWriter(Sink sink);
    ~ArchiveWriter();
    ArchiveWriter(const ArchiveWriter&) = delete;
    ArchiveWriter& operator=(const ArchiveWriter&) = delete;

    // Begins a regular file of exactly `size` bytes, which follow through Data. Times, permissions and owner come from
    // `status`.
    std::optional<Error> BeginFile(const std::string& name, const struct stat& status, std::uint64_t size);
    std::optional<Error> Data(std::string_view data);

    std::optional<Error> AddFolder(const std::string& name, const struct stat& status);
    std::optional<Error> AddLink(const std::string& name, const std::string& target, const struct stat& status);

    // Writes the end. Nothing may follow.
    std::optional<Error> Close();

private:
    struct FreeArchive {
        void operator()(archive* writer) const;
    };
    struct FreeEntry {
        void operator()(archive_entry* entry) const;
    };
    using EntryPtr = std::unique_ptr<archive_entry, FreeEntry>;

    void Open();
    static EntryPtr MakeEntry(const std::string& name, const struct stat& status, unsigned type);
    std::optional<Error> WriteHeader(archive_entry& entry);
    std::optional<Error> Checked(int result);

    Sink sink_;
    bool closed_ = false;
    std::optional<Error> error_;  // that ended the archive
    std::unique_ptr<archive, FreeArchive> archive_;
};

}  // namespace ominspect::collect
