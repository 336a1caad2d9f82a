// Puts a tree of files into an archive. Every name is opened relative to its folder's descriptor and never through a
// link, so nobody who may write in the tree can lead the walk out of it.
#include "packer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "fd/unique_fd.h"
#include "names.h"
#include "sha256.h"

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

class Packer {
public:
    Packer(const PackOptions& options, ArchiveWriter& archive, PackedTree& packed)
        : options_(options), archive_(archive), packed_(packed), buffer_(kBlock) {}

    // The content of a folder; `path` is empty for the tree's root. False when packing is over.
    bool PackFolder(int folder, const std::string& path) {
        std::vector<std::string> names;
        if (const int error = SortedNames(folder, ".", names); error != 0) {
            LeaveOut(path.empty() ? "." : path, error);
        }
        return std::all_of(names.begin(), names.end(), [&](const std::string& name) {
            return GoOn() && PackMember(folder, name, path.empty() ? name : path + '/' + name);
        });
    }

    PackResult Result(bool done) const {
        if (done) {
            return PackResult::kPacked;
        }
        return givenUp_ ? PackResult::kGivenUp : PackResult::kArchiveFailed;
    }

private:
    bool PackMember(int folder, const std::string& name, const std::string& path) {
        struct stat status {};
        if (fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
            return LeaveOut(path, errno);
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
        packed_.leftOut.push_back({path, TypeWord(status.st_mode)});
        return true;
    }

    bool PackLink(int folder, const std::string& name, const std::string& path, const struct stat& status) {
        std::array<char, PATH_MAX> target{};
        const ssize_t size = readlinkat(folder, name.c_str(), target.data(), target.size());
        if (size < 0) {
            return LeaveOut(path, errno);
        }
        const std::string text(target.data(), static_cast<std::size_t>(size));
        if (!archive_.AddLink(InArchive(path), text, status)) {
            return false;
        }
        packed_.links.push_back({path, text});
        return true;
    }

    bool PackSubfolder(int folder, const std::string& name, const std::string& path) {
        const UniqueFd fd(openat(folder, name.c_str(), kFolderFlags));
        struct stat status {};
        if (!fd || fstat(fd.Get(), &status) != 0) {
            return LeaveOut(path, errno);
        }
        if (!archive_.AddFolder(InArchive(path), status)) {
            return false;
        }
        ++packed_.folders;
        return PackFolder(fd.Get(), path);
    }

    bool PackFile(int folder, const std::string& name, const std::string& path) {
        const UniqueFd fd(openat(folder, name.c_str(), kFileFlags));
        struct stat status {};
        if (!fd || fstat(fd.Get(), &status) != 0) {
            return LeaveOut(path, errno);
        }
        if (!S_ISREG(status.st_mode)) {  // replaced since it was looked at
            packed_.leftOut.push_back({path, TypeWord(status.st_mode)});
            return true;
        }
        if (options_.exclude(status)) {
            return true;
        }
        PackedFile file;
        file.path = path;
        file.bytes = static_cast<std::uint64_t>(status.st_size);
        file.modified = status.st_mtim;
        file.older = IsBefore(status.st_ctim, options_.since);
        if (!archive_.BeginFile(InArchive(path), status, file.bytes) || !PackContent(fd.Get(), file)) {
            return false;
        }
        NoteChanges(fd.Get(), status, file);
        packed_.files.push_back(std::move(file));
        return true;
    }

    bool PackContent(int fd, PackedFile& file) {
        Sha256 sum;
        std::uint64_t left = file.bytes;
        while (left > 0) {
            if (!GoOn()) {
                return false;
            }
            const std::size_t wanted = std::min<std::uint64_t>(left, buffer_.size());
            const std::size_t got = file.note.empty() ? Read(fd, wanted, left, file) : 0;
            std::fill(buffer_.begin() + static_cast<std::ptrdiff_t>(got),
                      buffer_.begin() + static_cast<std::ptrdiff_t>(wanted), '\0');
            const std::size_t size = file.note.empty() ? got : wanted;
            sum.Add(buffer_.data(), size);
            if (!archive_.Data(buffer_.data(), size)) {
                return false;
            }
            left -= size;
            packed_.bytes += size;
        }
        file.sha256 = sum.Hex();
        return true;
    }

    // Reads what comes next; at an end before `left` bytes notes how the file goes on.
    std::size_t Read(int fd, std::size_t wanted, std::uint64_t left, PackedFile& file) {
        ssize_t got = 0;
        do {
            got = read(fd, buffer_.data(), wanted);
        } while (got < 0 && errno == EINTR);
        if (got > 0) {
            return static_cast<std::size_t>(got);
        }
        file.note =
            got == 0 ? "it shrank while it was packed" : std::string("it cannot be read: ") + std::strerror(errno);
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

    bool LeaveOut(const std::string& path, int error) {
        packed_.leftOut.push_back({path, std::strerror(error)});
        return true;
    }

    bool GoOn() {
        givenUp_ = givenUp_ || !options_.goOn(packed_);
        return !givenUp_;
    }

    std::string InArchive(const std::string& path) const { return options_.folder + '/' + path; }

    const PackOptions& options_;
    ArchiveWriter& archive_;
    PackedTree& packed_;
    std::vector<char> buffer_;
    bool givenUp_ = false;
};

}  // namespace

PackResult PackTree(const std::string& root, const PackOptions& options, ArchiveWriter& archive, PackedTree& packed) {
    // The root may be a link: it is the caller's own choice.
    const UniqueFd folder(open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder) {
        if (errno != ENOENT) {
            packed.leftOut.push_back({".", std::strerror(errno)});
        }
        return PackResult::kPacked;
    }
    Packer packer(options, archive, packed);
    return packer.Result(packer.PackFolder(folder.Get(), {}));
}

}  // namespace ominspect::collect
