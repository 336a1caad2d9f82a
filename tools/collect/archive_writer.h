// A tar archive in the pax format, compressed with zstd, as a stream: a cover over libarchive.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <sys/stat.h>

struct archive;
struct archive_entry;

namespace ominspect::collect {

// Functions return false after an error that ends the archive; Error then tells it. Names are bytes: one that is no
// UTF-8 is stored as it is. To be used by one thread.
class ArchiveWriter {
public:
    // Takes compressed bytes; returns 0, or an errno(3) number that ends the archive.
    using Sink = std::function<int(const void* data, std::size_t size)>;

    explicit ArchiveWriter(Sink sink);
    ~ArchiveWriter();
    ArchiveWriter(const ArchiveWriter&) = delete;
    ArchiveWriter& operator=(const ArchiveWriter&) = delete;

    // Begins a regular file of exactly `size` bytes, which follow through Data. Times, permissions and owner come from
    // `status`.
    bool BeginFile(const std::string& name, const struct stat& status, std::uint64_t size);
    bool Data(const void* data, std::size_t size);

    bool AddFolder(const std::string& name, const struct stat& status);
    bool AddLink(const std::string& name, const std::string& target, const struct stat& status);

    // Writes the end. Nothing may follow.
    bool Close();

    const std::string& Error() const { return error_; }

private:
    struct FreeArchive {
        void operator()(archive* writer) const;
    };
    struct FreeEntry {
        void operator()(archive_entry* entry) const;
    };
    using EntryPtr = std::unique_ptr<archive_entry, FreeEntry>;

    bool Open();
    static EntryPtr MakeEntry(const std::string& name, const struct stat& status, unsigned type, std::uint64_t size);
    bool WriteHeader(archive_entry& entry);
    bool Checked(int result);

    Sink sink_;
    int sinkError_ = 0;
    bool closed_ = false;
    std::string error_;
    std::unique_ptr<archive, FreeArchive> archive_;
};

}  // namespace ominspect::collect
