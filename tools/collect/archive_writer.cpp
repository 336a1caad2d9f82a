// The first error is kept here. libarchive is not told of the sink's errors.
#include "archive_writer.h"

#include <clocale>
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
    Open();
}

ArchiveWriter::~ArchiveWriter() {
    if (closed_) {
        return;
    }
    sink_ = [](std::string_view /*data*/) { return std::nullopt; };
    (void)archive_write_fail(archive_.get());   // a file that was begun is not filled up
    (void)archive_write_close(archive_.get());  // frees what archive_write_free would leave
}

void ArchiveWriter::Open() {
    // The library is never told of an error: it would not free everything afterwards.
    const auto write = [](archive* /*writer*/, void* self, const void* data, std::size_t size) -> la_ssize_t {
        auto& writer = *static_cast<ArchiveWriter*>(self);
        if (!writer.error_) {
            writer.error_ = writer.sink_({static_cast<const char*>(data), size});
        }
        return static_cast<la_ssize_t>(size);
    };
    // A warning would mean that an outside program does the compressing.
    if (archive_write_add_filter_zstd(archive_.get()) != ARCHIVE_OK) {
        error_ = OtherError("libarchive was built without zstd");
        return;
    }
    // On a thread of its own if it can, so that masking and checksums go on meanwhile.
    (void)archive_write_set_filter_option(archive_.get(), "zstd", "threads", "1");
    for (const int result : {archive_write_set_format_pax_restricted(archive_.get()),
                             archive_write_set_bytes_in_last_block(archive_.get(), 1),
                             archive_write_open(archive_.get(), this, nullptr, write, nullptr)}) {
        (void)Checked(result);
    }
}

ArchiveWriter::EntryPtr ArchiveWriter::MakeEntry(const std::string& name, const struct stat& status, unsigned type) {
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
    return entry;
}

std::optional<Error> ArchiveWriter::BeginFile(const std::string& name, const struct stat& status, std::uint64_t size) {
    const EntryPtr entry = MakeEntry(name, status, AE_IFREG);
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(size));
    return WriteHeader(*entry);
}

std::optional<Error> ArchiveWriter::AddFolder(const std::string& name, const struct stat& status) {
    return WriteHeader(*MakeEntry(name + '/', status, AE_IFDIR));
}

std::optional<Error> ArchiveWriter::AddLink(const std::string& name, const std::string& target,
                                            const struct stat& status) {
    const EntryPtr entry = MakeEntry(name, status, AE_IFLNK);
    archive_entry_copy_symlink(entry.get(), target.c_str());
    return WriteHeader(*entry);
}

std::optional<Error> ArchiveWriter::WriteHeader(archive_entry& entry) {
    if (error_) {
        return error_;
    }
    const Utf8Locale locale;
    return Checked(archive_write_header(archive_.get(), &entry));
}

std::optional<Error> ArchiveWriter::Data(std::string_view data) {
    if (error_) {
        return error_;
    }
    const la_ssize_t written = archive_write_data(archive_.get(), data.data(), data.size());
    if (written >= 0 && written != static_cast<la_ssize_t>(data.size())) {
        error_ = OtherError("more data than the size of the file");
    }
    return Checked(written < 0 ? ARCHIVE_FATAL : ARCHIVE_OK);
}

std::optional<Error> ArchiveWriter::Close() {
    if (error_) {
        return error_;
    }
    closed_ = true;
    return Checked(archive_write_close(archive_.get()));
}

// A warning (a name that is not UTF-8 is stored as bytes) ends nothing.
std::optional<Error> ArchiveWriter::Checked(int result) {
    if (!error_ && result < ARCHIVE_WARN) {
        const char* text = archive_error_string(archive_.get());
        error_ = text == nullptr ? SystemError(archive_errno(archive_.get())) : OtherError(text);
    }
    return error_;
}

}  // namespace ominspect::collect
