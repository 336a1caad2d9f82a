// A descriptor of the kind O_PATH opens nothing: neither a device nor a pipe notices, and the kernel tells where it
// really leads. The platform then gets the path /proc/self/fd/N, which nobody can redirect.
#include "copy_guard.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>

#include "area.h"
#include "common/error.h"

namespace ominspect::collect {
namespace {

constexpr int kPlace = O_PATH | O_CLOEXEC;
constexpr int kFolderPlace = kPlace | O_DIRECTORY | O_NOFOLLOW;

std::string PathOf(int fd) {
    return "/proc/self/fd/" + std::to_string(fd);
}

// Where the descriptor leads, links followed; empty when the system does not tell.
std::string RealPath(int fd) {
    std::array<char, PATH_MAX> real{};
    const ssize_t size = readlink(PathOf(fd).c_str(), real.data(), real.size());
    return size < 0 ? std::string() : std::string(real.data(), static_cast<std::size_t>(size));
}

std::string RealPath(const std::string& path) {
    const UniqueFd fd(open(path.c_str(), kPlace));
    return fd ? RealPath(fd.Get()) : std::string();
}

std::string Folder(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, std::max<std::size_t>(slash, 1));
}

std::string Name(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

// Whether a text is `folder` or begins with it as a folder. The copy functions make all their paths from the two that
// they are given, so comparing texts tells the trees apart.
bool BeginsWith(std::string_view path, std::string_view folder) {
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

// The folder `path` below `base`, no link followed on the way. Slashes may stand around it.
UniqueFd OpenBelow(int base, const std::string& path) {
    UniqueFd folder(openat(base, ".", kFolderPlace));
    for (std::size_t begin = 0; folder && begin < path.size();) {
        const std::size_t end = std::min(path.find('/', begin), path.size());
        const std::string name = path.substr(begin, end - begin);
        if (name == "..") {
            errno = EPERM;
            return {};
        }
        if (!name.empty()) {
            folder = UniqueFd(openat(folder.Get(), name.c_str(), kFolderPlace));
        }
        begin = end + 1;
    }
    return folder;
}

// The platform refuses everything but regular files with one and the same number; this text says more.
std::string Reason(const struct stat& source, std::uint32_t error) {
    return error == EINVAL && !S_ISREG(source.st_mode) ? "not a regular file" : SystemText(static_cast<int>(error));
}

}  // namespace

CopyGuard::CopyGuard(const std::string& source, std::string destination, const CopyRules& rules, CopyCounts& counts,
                     Tell tell)
    : source_(source),
      sourceReal_(RealPath(source)),
      destination_(std::move(destination)),
      rules_(rules),
      counts_(counts),
      tell_(std::move(tell)) {}

void CopyGuard::Clear() {
    const std::string path = InsideDestination(destination_);
    std::error_code error;
    if (!path.empty() && !rules_.dryRun) {
        std::filesystem::remove_all(path, error);  // opens each folder below the one above it, and no link
    }
    if (error) {
        tell_(destination_, "the old copy cannot be removed: " + error.message());
    }
}

// Opens what the path leads to. Without a descriptor errno tells why, and a path that must not be read has been told.
CopyGuard::Opened CopyGuard::OpenSource(const std::string& path) {
    Opened opened;
    opened.fd = UniqueFd(open(path.c_str(), kPlace));
    if (!opened.fd) {
        return opened;
    }
    opened.real = RealPath(opened.fd.Get());
    if (sourceReal_.empty() || opened.real.empty() || !IsInside(opened.real, sourceReal_)) {
        tell_(path, "a link that leads out of the source");
        opened.told = true;
        opened.fd.Reset();
        errno = ELOOP;
    }
    return opened;
}

// A path for the platform that stands for this one in the area, with no link on the way. Empty when there is none, and
// errno tells why.
std::string CopyGuard::InsideArea(const std::string& path) {
    const std::string name = Name(path);
    if (!BeginsWith(path, rules_.area) || path.size() == rules_.area.size() || name.empty() || name == "." ||
        name == "..") {
        errno = EPERM;
        return {};
    }
    const std::size_t area = rules_.area.size();
    const std::string parent = path.substr(area, path.size() - area - name.size());
    if (!area_) {
        area_ = UniqueFd(open(rules_.area.c_str(), kPlace | O_DIRECTORY));
    }
    if (!area_) {
        return {};
    }
    if (!parentFd_ || parent_ != parent) {
        parentFd_ = OpenBelow(area_.Get(), parent);
        parent_ = parent;
    }
    return parentFd_ ? PathOf(parentFd_.Get()) + '/' + name : std::string();
}

std::string CopyGuard::InsideDestination(const std::string& path) {
    if (BeginsWith(path, destination_)) {
        return InsideArea(path);
    }
    errno = EPERM;
    return {};
}

std::uint32_t CopyGuard::Copy(const char* src, const char* dst) {
    const std::string source = src;
    const Opened opened = OpenSource(source);
    if (!opened.fd) {
        const int error = errno;
        if (!opened.told) {
            tell_(source, SystemText(error));
        }
        return static_cast<std::uint32_t>(error);
    }
    struct stat status {};
    (void)fstat(opened.fd.Get(), &status);
    const auto size = static_cast<std::uint64_t>(status.st_size);
    if (S_ISREG(status.st_mode) && (counts_.bytes > rules_.bytesLeft || size > rules_.bytesLeft - counts_.bytes)) {
        tell_(source, "beyond the size limit");
        return EFBIG;
    }
    (void)std::snprintf(counts_.current.data(), counts_.current.size(), "%s", src);
    const std::uint32_t error = CopyOpened(opened.fd.Get(), status, dst);
    counts_.current[0] = '\0';
    if (error != 0) {
        tell_(source, Reason(status, error));
    }
    return error;
}

std::uint32_t CopyGuard::CopyOpened(int source, const struct stat& status, const std::string& dst) {
    if (rules_.dryRun) {
        return Count(status);
    }
    const std::string target = InsideDestination(dst);
    if (target.empty()) {
        return static_cast<std::uint32_t>(errno);
    }
    if (const std::uint32_t error = platform::CopyFile(PathOf(source).c_str(), target.c_str()); error != 0) {
        return error;
    }
    const std::array<timespec, 2> times{status.st_atim, status.st_mtim};
    struct stat copy {};
    if (utimensat(AT_FDCWD, target.c_str(), times.data(), AT_SYMLINK_NOFOLLOW) != 0 ||
        lstat(target.c_str(), &copy) != 0) {
        return static_cast<std::uint32_t>(errno);
    }
    return Count(copy);
}

std::uint32_t CopyGuard::Count(const struct stat& status) {
    if (!S_ISREG(status.st_mode)) {
        return EINVAL;  // as the platform answers
    }
    counts_.bytes += static_cast<std::uint64_t>(status.st_size);
    ++counts_.files;
    return 0;
}

OsDir* CopyGuard::OpenFolder(const char* path) {
    if (BeginsWith(path, destination_)) {
        const std::string inside = InsideDestination(path);
        const UniqueFd fd(inside.empty() ? -1 : open(inside.c_str(), kFolderPlace));
        return fd ? platform::OpenDir(PathOf(fd.Get()).c_str()) : nullptr;
    }
    const Opened opened = OpenSource(path);
    if (!opened.fd) {
        return nullptr;
    }
    // The topmost folder has no folder above it that belongs to the copy.
    if (path != source_ && IsInside(RealPath(Folder(path)), opened.real)) {
        tell_(path, "a link to a folder that it lies in");
        errno = ELOOP;
        return nullptr;
    }
    OsDir* folder = platform::OpenDir(PathOf(opened.fd.Get()).c_str());
    if (folder != nullptr) {
        folders_[folder] = opened.real;
    }
    return folder;
}

// What is passed over is never seen by the copy functions.
dirent* CopyGuard::ReadFolder(OsDir* folder) {
    const auto known = folders_.find(folder);
    dirent* entry = nullptr;
    do {
        entry = platform::ReadDir(folder);
    } while (entry != nullptr && known != folders_.end() &&
             IsPassedOver(known->second, static_cast<const char*>(entry->d_name)));
    return entry;
}

// The source is never "/": that one overlaps with every destination.
bool CopyGuard::IsPassedOver(const std::string& folder, const char* name) const {
    const std::string path = folder + '/' + name;
    return path == rules_.package || rules_.Excludes(path.substr(sourceReal_.size() + 1));
}

std::uint32_t CopyGuard::CloseFolder(OsDir* folder) {
    folders_.erase(folder);
    return platform::CloseDir(folder);
}

std::uint32_t CopyGuard::MakeFolder(const char* path, std::uint32_t mode) {
    if (rules_.dryRun) {
        return 0;
    }
    const std::string inside = InsideArea(path);
    return inside.empty() ? static_cast<std::uint32_t>(errno) : platform::MkDir(inside.c_str(), mode);
}

std::uint32_t CopyGuard::RemoveFolder(const char* path) {
    if (rules_.dryRun) {
        return 0;
    }
    const std::string inside = InsideDestination(path);
    if (inside.empty()) {
        return static_cast<std::uint32_t>(errno);
    }
    struct stat status {};
    const bool isLink = lstat(inside.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
    return isLink ? platform::Remove(inside.c_str()) : platform::RmDir(inside.c_str());
}

std::uint32_t CopyGuard::RemoveFile(const char* path) {
    if (rules_.dryRun) {
        return 0;
    }
    const std::string inside = InsideDestination(path);
    return inside.empty() ? static_cast<std::uint32_t>(errno) : platform::Remove(inside.c_str());
}

}  // namespace ominspect::collect
