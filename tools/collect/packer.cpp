// Every name is opened relative to its folder's descriptor and never through a link, so nobody who may write in the
// tree can lead the walk out of it.
#include "packer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <memory>
#include <new>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

#include <openssl/evp.h>

#include "common/fd.h"

namespace ominspect::collect {
namespace {

constexpr std::size_t kBlock = std::size_t{128} << 10U;
constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr int kFileFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

bool IsBefore(const timespec& one, const timespec& other) {
    return one.tv_sec != other.tv_sec ? one.tv_sec < other.tv_sec : one.tv_nsec < other.tv_nsec;
}

const char* TypeWord(mode_t mode) {
    if (S_ISFIFO(mode)) {
        return "a pipe";
    }
    if (S_ISSOCK(mode)) {
        return "a socket";
    }
    return "a device";
}

// SHA-256 of a stream of bytes. Throws std::bad_alloc when the library cannot set it up, which is when there is no
// memory.
class Sha256 {
public:
    Sha256() : context_(EVP_MD_CTX_new()) {
        if (context_ == nullptr || EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) != 1) {
            throw std::bad_alloc();
        }
    }

    void Add(std::string_view data) {
        (void)EVP_DigestUpdate(context_.get(), data.data(), data.size());  // a set-up SHA-256 takes everything
    }

    // The sum of all that was added, as 64 lower-case hexadecimal digits. Ends the stream.
    std::string Hex() {
        std::array<unsigned char, EVP_MAX_MD_SIZE> sum{};
        unsigned int size = 0;
        (void)EVP_DigestFinal_ex(context_.get(), sum.data(), &size);
        std::string hex;
        for (unsigned int i = 0; i < size; ++i) {
            constexpr const char* kDigits = "0123456789abcdef";
            hex += kDigits[sum.at(i) >> 4U];
            hex += kDigits[sum.at(i) & 15U];
        }
        return hex;
    }

private:
    struct Free {
        void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
    };
    std::unique_ptr<EVP_MD_CTX, Free> context_;
};

class Packer {
public:
    Packer(const PackOptions& options, ArchiveWriter& archive, PackedTree& packed)
        : options_(options), archive_(archive), packed_(packed), buffer_(kBlock) {}

    // The content of a folder; `path` is empty for the tree's root.
    std::optional<Error> PackFolder(int folder, const std::string& path) {
        std::vector<std::string> names;
        if (const auto error = SortedNames(folder, ".", names)) {
            LeaveOut(path.empty() ? "." : path, error->text);
        }
        const std::string prefix = path.empty() ? "" : path + '/';
        for (const std::string& name : names) {
            auto error = AskToGoOn();
            if (!error) {
                std::string member = prefix;
                error = PackMember(folder, name, member.append(name));
            }
            if (error) {
                return error;
            }
        }
        return std::nullopt;
    }

private:
    std::optional<Error> PackMember(int folder, const std::string& name, const std::string& path) {
        struct stat status {};
        if (fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
            return LeaveOut(path, SystemText(errno));
        }
        if (S_ISLNK(status.st_mode)) {
            return PackLink(folder, name, path, status);
        }
        if (S_ISDIR(status.st_mode)) {
            return PackSubfolder(folder, name, path);
        }
        if (S_ISREG(status.st_mode)) {
            return PackFile(folder, name, path);
        }
        return LeaveOut(path, TypeWord(status.st_mode));
    }

    std::optional<Error> PackLink(int folder, const std::string& name, const std::string& path,
                                  const struct stat& status) {
        std::array<char, PATH_MAX> target{};
        const ssize_t size = readlinkat(folder, name.c_str(), target.data(), target.size());
        if (size < 0) {
            return LeaveOut(path, SystemText(errno));
        }
        const std::string text(target.data(), static_cast<std::size_t>(size));
        if (auto error = archive_.AddLink(InArchive(path), text, status)) {
            return error;
        }
        packed_.links.push_back({path, text});
        return std::nullopt;
    }

    std::optional<Error> PackSubfolder(int folder, const std::string& name, const std::string& path) {
        const UniqueFd fd(openat(folder, name.c_str(), kFolderFlags));
        struct stat status {};
        if (!fd || fstat(fd.Get(), &status) != 0) {
            return LeaveOut(path, SystemText(errno));
        }
        if (auto error = archive_.AddFolder(InArchive(path), status)) {
            return error;
        }
        ++packed_.folders;
        return PackFolder(fd.Get(), path);
    }

    std::optional<Error> PackFile(int folder, const std::string& name, const std::string& path) {
        const UniqueFd fd(openat(folder, name.c_str(), kFileFlags));
        struct stat status {};
        if (!fd || fstat(fd.Get(), &status) != 0) {
            return LeaveOut(path, SystemText(errno));
        }
        if (!S_ISREG(status.st_mode)) {  // replaced since it was looked at
            return LeaveOut(path, TypeWord(status.st_mode));
        }
        if (options_.exclude(status)) {
            return std::nullopt;
        }
        PackedFile file;
        file.path = path;
        file.bytes = static_cast<std::uint64_t>(status.st_size);
        file.modified = status.st_mtim;
        file.older = IsBefore(status.st_ctim, options_.since);
        auto error = archive_.BeginFile(InArchive(path), status, file.bytes);
        if (!error) {
            error = PackContent(fd.Get(), file);
        }
        if (error) {
            return error;
        }
        NoteChanges(fd.Get(), status, file);
        packed_.files.push_back(std::move(file));
        return std::nullopt;
    }

    std::optional<Error> PackContent(int fd, PackedFile& file) {
        Sha256 sum;
        const Redactor::Sink store = [&](std::string_view data) {
            sum.Add(data);
            packed_.bytes += data.size();
            return archive_.Data(data);
        };
        std::optional<Redactor> redactor;
        if (options_.redaction != nullptr) {
            redactor.emplace(*options_.redaction);
        }
        std::uint64_t left = file.bytes;
        while (left > 0) {
            if (auto error = AskToGoOn()) {
                return error;
            }
            const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(left, buffer_.size()));
            const std::size_t got = file.note.empty() ? Read(fd, wanted, left, file) : 0;
            std::fill(buffer_.begin() + static_cast<std::ptrdiff_t>(got),
                      buffer_.begin() + static_cast<std::ptrdiff_t>(wanted), '\0');
            const std::size_t size = file.note.empty() ? got : wanted;
            const std::string_view data(buffer_.data(), size);
            if (auto error = redactor ? redactor->Add(data, store) : store(data)) {
                return error;
            }
            left -= size;
        }
        if (redactor) {
            if (auto error = redactor->End(store)) {
                return error;
            }
            file.binary = redactor->IsBinary();
            file.masked = file.binary ? std::nullopt : std::optional(redactor->Count());
        }
        file.sha256 = sum.Hex();
        return std::nullopt;
    }

    // Reads the next bytes. When the file ends too early, notes that the last `left` bytes are zeros.
    std::size_t Read(int fd, std::size_t wanted, std::uint64_t left, PackedFile& file) {
        ssize_t got = 0;
        do {
            got = read(fd, buffer_.data(), wanted);
        } while (got < 0 && errno == EINTR);
        if (got > 0) {
            return static_cast<std::size_t>(got);
        }
        file.note = got == 0 ? "it shrank while it was packed" : std::string("it cannot be read: ") + SystemText(errno);
        file.note += "; the last " + std::to_string(left) + " bytes are zeros";
        return 0;
    }

    static void NoteChanges(int fd, const struct stat& before, PackedFile& file) {
        struct stat after {};
        if (!file.note.empty() || fstat(fd, &after) != 0) {
            return;
        }
        if (after.st_size > before.st_size) {
            file.note = "it grew while it was packed; only its first " + std::to_string(file.bytes) + " bytes are here";
        } else if (IsBefore(before.st_mtim, after.st_mtim) || IsBefore(after.st_mtim, before.st_mtim)) {
            file.note = "it changed while it was packed";
        }
    }

    // What is left out is no error.
    std::optional<Error> LeaveOut(const std::string& path, const std::string& reason) {
        packed_.leftOut.push_back({path, reason});
        return std::nullopt;
    }

    std::optional<Error> AskToGoOn() const {
        return options_.goOn(packed_) ? std::nullopt : std::optional(Error{ErrorCode::kCancelled, "given up"});
    }

    std::string InArchive(const std::string& path) const { return options_.folder + '/' + path; }

    const PackOptions& options_;
    ArchiveWriter& archive_;
    PackedTree& packed_;
    std::vector<char> buffer_;
};

}  // namespace

std::optional<Error> PackTree(const std::string& root, const PackOptions& options, ArchiveWriter& archive,
                              PackedTree& packed) {
    // The root may be a link: it is the caller's own choice.
    const UniqueFd folder(open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder) {
        if (errno != ENOENT) {
            packed.leftOut.push_back({".", SystemText(errno)});
        }
        return std::nullopt;
    }
    return Packer(options, archive, packed).PackFolder(folder.Get(), {});
}

}  // namespace ominspect::collect
