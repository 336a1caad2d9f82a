// A tar archive in the pax format, compressed with zstd.
#include "archive_writer.h"

#include <cerrno>
#include <clocale>
#include <cstring>
#include <new>
#include <utility>

#include <archive.h>
#include <archive_entry.h>

namespace ominspect::collect {
namespace {

constexpr unsigned kPermissionBits = 0777;

// libarchive takes names for texts in the thread's locale: with this one, UTF-8 stays as it is.
class Utf8Locale {
public:
    Utf8Locale() : own_(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)), before_(uselocale(own_)) {}
    ~Utf8Locale() {
        (void)uselocale(before_);
        if (own_ != nullptr) {
            freelocale(own_);
        }
    }
    Utf8Locale(const Utf8Locale&) = delete;
    Utf8Locale& operator=(const Utf8Locale&) = delete;

private:
    locale_t own_;  // null where the system has no such locale; uselocale then changes nothing
    locale_t before_;
};

}  // namespace

void ArchiveWriter::FreeArchive::operator()(archive* writer) const {
    (void)archive_write_free(writer);
}

void ArchiveWriter::FreeEntry::operator()(archive_entry* entry) const {
    archive_entry_free(entry);
}

ArchiveWriter::ArchiveWriter(Sink sink) : sink_(std::move(sink)), archive_(archive_write_new()) {
    if (archive_ == nullptr) {
        throw std::bad_alloc();
    }
    (void)Open();
}

ArchiveWriter::~ArchiveWriter() {
    if (closed_) {
        return;
    }
    sink_ = [](const void*, std::size_t) { return 0; };
    (void)archive_write_fail(archive_.get());   // a file that was begun is not filled up
    (void)archive_write_close(archive_.get());  // frees what archive_write_free would leave
}

bool ArchiveWriter::Open() {
    // The library is never told of an error: it would not free everything afterwards.
    const auto write = [](archive* /*writer*/, void* self, const void* data, std::size_t size) -> la_ssize_t {
        auto& writer = *static_cast<ArchiveWriter*>(self);
        if (writer.sinkError_ == 0) {
            writer.sinkError_ = writer.sink_(data, size);
        }
        return static_cast<la_ssize_t>(size);
    };
    // A warning would mean that an outside program does the compressing.
    if (archive_write_add_filter_zstd(archive_.get()) != ARCHIVE_OK) {
        error_ = "libarchive was built without zstd";
        return false;
    }
    return Checked(archive_write_set_format_pax_restricted(archive_.get())) &&
           Checked(archive_write_set_bytes_in_last_block(archive_.get(), 1)) &&
           Checked(archive_write_open(archive_.get(), this, nullptr, write, nullptr));
}

ArchiveWriter::EntryPtr ArchiveWriter::MakeEntry(const std::string& name, const struct stat& status, unsigned type,
                                                 std::uint64_t size) {
    EntryPtr entry(archive_entry_new());
    if (entry == nullptr) {
        throw std::bad_alloc();
    }
    archive_entry_copy_pathname(entry.get(), name.c_str());
    archive_entry_set_filetype(entry.get(), type);
    archive_entry_set_perm(entry.get(), status.st_mode & kPermissionBits);
    archive_entry_set_uid(entry.get(), status.st_uid);
    archive_entry_set_gid(entry.get(), status.st_gid);
    archive_entry_set_mtime(entry.get(), status.st_mtim.tv_sec, status.st_mtim.tv_nsec);
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(size));
    return entry;
}

bool ArchiveWriter::BeginFile(const std::string& name, const struct stat& status, std::uint64_t size) {
    return WriteHeader(*MakeEntry(name, status, AE_IFREG, size));
}

bool ArchiveWriter::AddFolder(const std::string& name, const struct stat& status) {
    return WriteHeader(*MakeEntry(name + '/', status, AE_IFDIR, 0));
}

bool ArchiveWriter::AddLink(const std::string& name, const std::string& target, const struct stat& status) {
    const EntryPtr entry = MakeEntry(name, status, AE_IFLNK, 0);
    archive_entry_copy_symlink(entry.get(), target.c_str());
    return WriteHeader(*entry);
}

bool ArchiveWriter::WriteHeader(archive_entry& entry) {
    if (!error_.empty()) {
        return false;
    }
    const Utf8Locale locale;
    return Checked(archive_write_header(archive_.get(), &entry));
}

bool ArchiveWriter::Data(const void* data, std::size_t size) {
    if (!error_.empty()) {
        return false;
    }
    const la_ssize_t written = archive_write_data(archive_.get(), data, size);
    if (written >= 0 && written != static_cast<la_ssize_t>(size)) {
        error_ = "more data than the size of the file";
        return false;
    }
    return Checked(written < 0 ? ARCHIVE_FATAL : ARCHIVE_OK);
}

bool ArchiveWriter::Close() {
    if (!error_.empty()) {
        return false;
    }
    closed_ = true;
    return Checked(archive_write_close(archive_.get()));
}

// A warning (a name that is no UTF-8 is stored as bytes) ends nothing.
bool ArchiveWriter::Checked(int result) {
    if (sinkError_ != 0) {
        error_ = std::strerror(sinkError_);
        return false;
    }
    if (result >= ARCHIVE_WARN) {
        return true;
    }
    const char* text = archive_error_string(archive_.get());
    error_ = text == nullptr ? std::strerror(archive_errno(archive_.get())) : text;
    return false;
}

}  // namespace ominspect::collect
