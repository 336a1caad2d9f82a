// Thin wrappers: each returns errno instead of -1.
#include "kivo/os_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>

struct OsDir {
    DIR* stream;
};

namespace {

uint32_t Result(int returned) {
    return returned == 0 ? 0 : static_cast<uint32_t>(errno);
}

int64_t Nanoseconds(const timespec& time) {
    return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

}  // namespace

uint32_t OsAccess(const char* path, int mode) {
    return path == nullptr ? EINVAL : Result(access(path, mode));
}

OsDir* OsOpenDir(const char* path) {
    if (path == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    DIR* stream = opendir(path);
    if (stream == nullptr) {
        return nullptr;
    }
    auto* dir = new (std::nothrow) OsDir{stream};
    if (dir == nullptr) {
        closedir(stream);
        errno = ENOMEM;
    }
    return dir;
}

struct dirent* OsReadDir(OsDir* dir) {
    return dir == nullptr ? nullptr : readdir(dir->stream);
}

uint32_t OsCloseDir(OsDir* dir) {
    if (dir == nullptr) {
        return EINVAL;
    }
    const uint32_t result = Result(closedir(dir->stream));
    delete dir;
    return result;
}

uint32_t OsGetStat(const char* path, struct OsFileStat* stat) {
    if (path == nullptr || stat == nullptr) {
        return EINVAL;
    }
    struct stat status {};
    if (::stat(path, &status) != 0) {
        return static_cast<uint32_t>(errno);
    }
    stat->size = static_cast<uint64_t>(status.st_size);
    // Both are the modification time: every write changes it, reading does not, and a copy can be given it.
    stat->modifyTime = Nanoseconds(status.st_mtim);
    stat->detectTime = Nanoseconds(status.st_mtim);
    stat->mode = status.st_mode;
    stat->linkCount = static_cast<uint32_t>(status.st_nlink);
    return 0;
}

uint32_t OsMkDir(const char* path, uint32_t mode) {
    if (path == nullptr) {
        return EINVAL;
    }
    if (mkdir(path, mode) != 0) {
        return static_cast<uint32_t>(errno);
    }
    // The link flag: somebody may have put a link in the place of the new directory.
    if (fchmodat(AT_FDCWD, path, mode, AT_SYMLINK_NOFOLLOW) != 0) {
        const auto error = static_cast<uint32_t>(errno);
        rmdir(path);
        return error;
    }
    return 0;
}

uint32_t OsRemove(const char* path) {
    return path == nullptr ? EINVAL : Result(unlink(path));
}

uint32_t OsRmDir(const char* path) {
    return path == nullptr ? EINVAL : Result(rmdir(path));
}
