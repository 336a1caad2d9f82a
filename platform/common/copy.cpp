// The kernel copies as much as it can; read and write do the rest and find the errors.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>

#include "common/unique_fd.h"
#include "kivo/os_file.h"

namespace {

using kivo::UniqueFd;

// One call of copy_file_range cannot be interrupted: a step keeps it short.
constexpr uint64_t kStep = uint64_t{8} << 20U;
constexpr size_t kBufferSize = size_t{64} << 10U;

// A pipe does not block, a terminal does not become the controlling one.
constexpr int kOpenFlags = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

constexpr mode_t kPermissionBits = 0777;

// The files of one copy. The source's size when it was opened bounds the copy, so that a source that grows
// all the time still comes to an end; files of /proc say 0 and are read to their end.
struct Copy {
    UniqueFd src;
    UniqueFd dst;
    struct stat srcStat {};
    bool created = false;
};

uint32_t OpenSource(const char* path, Copy& copy) {
    // Looked at before it is opened: opening a device may already do something.
    if (stat(path, &copy.srcStat) != 0) {
        return static_cast<uint32_t>(errno);
    }
    if (!S_ISREG(copy.srcStat.st_mode)) {
        return EINVAL;
    }
    copy.src = UniqueFd(open(path, O_RDONLY | kOpenFlags));
    if (!copy.src || fstat(copy.src.Get(), &copy.srcStat) != 0) {
        return static_cast<uint32_t>(errno);
    }
    return S_ISREG(copy.srcStat.st_mode) ? 0 : EINVAL;
}

// A link at the destination is refused: whoever may write there could have the copy replace any file.
uint32_t OpenDestination(const char* path, Copy& copy) {
    struct stat status {};
    if (lstat(path, &status) == 0 && !S_ISREG(status.st_mode)) {
        return EINVAL;
    }
    constexpr int kWriteFlags = O_WRONLY | O_NOFOLLOW | kOpenFlags;
    copy.dst = UniqueFd(open(path, kWriteFlags));
    if (!copy.dst && errno == ENOENT) {
        // Private until it is complete and gets the source's permissions.
        copy.dst = UniqueFd(open(path, kWriteFlags | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR));
        copy.created = static_cast<bool>(copy.dst);
    }
    if (!copy.dst || fstat(copy.dst.Get(), &status) != 0) {
        return static_cast<uint32_t>(errno);
    }
    const bool same = status.st_dev == copy.srcStat.st_dev && status.st_ino == copy.srcStat.st_ino;
    return S_ISREG(status.st_mode) && !same ? 0 : EINVAL;
}

uint32_t WriteAll(int fd, const char* data, size_t size) {
    while (size > 0) {
        const ssize_t written = write(fd, data, size);
        if (written < 0 && errno != EINTR) {
            return static_cast<uint32_t>(errno);
        }
        if (written > 0) {
            data += written;
            size -= static_cast<size_t>(written);
        }
    }
    return 0;
}

// Only speeds the copy up: whatever it does not do, for whatever reason, is left to read and write, which also
// find out about errors. Returns the bytes copied; both file offsets stand behind them.
uint64_t CopyInKernel(const Copy& copy, uint64_t limit) {
    uint64_t done = 0;
    while (done < limit) {
        const auto step = static_cast<size_t>(std::min(limit - done, kStep));
        const ssize_t copied = copy_file_range(copy.src.Get(), nullptr, copy.dst.Get(), nullptr, step, 0);
        if (copied == 0 || (copied < 0 && errno != EINTR)) {
            break;
        }
        done += copied > 0 ? static_cast<uint64_t>(copied) : 0;
    }
    return done;
}

uint32_t CopyByHand(const Copy& copy, uint64_t limit) {
    std::array<char, kBufferSize> buffer;
    while (limit > 0) {
        const ssize_t got =
            read(copy.src.Get(), buffer.data(), static_cast<size_t>(std::min<uint64_t>(limit, kBufferSize)));
        if (got == 0) {
            return 0;  // the end, or the source became shorter
        }
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            return static_cast<uint32_t>(errno);
        }
        if (const uint32_t error = WriteAll(copy.dst.Get(), buffer.data(), static_cast<size_t>(got)); error != 0) {
            return error;
        }
        limit -= static_cast<uint64_t>(got);
    }
    return 0;
}

uint32_t CopyContents(Copy& copy) {
    // A new file is left alone: ext4 writes one that was truncated to the disk when it is closed.
    if (!copy.created && ftruncate(copy.dst.Get(), 0) != 0) {
        return static_cast<uint32_t>(errno);
    }
    const uint64_t limit = copy.srcStat.st_size > 0 ? static_cast<uint64_t>(copy.srcStat.st_size) : UINT64_MAX;
    const uint64_t done = CopyInKernel(copy, limit);
    if (const uint32_t error = CopyByHand(copy, limit - done); error != 0) {
        return error;
    }
    if (fchmod(copy.dst.Get(), copy.srcStat.st_mode & kPermissionBits) != 0) {
        return static_cast<uint32_t>(errno);
    }
    return static_cast<uint32_t>(copy.dst.Close());
}

}  // namespace

uint32_t OsCopyFile(const char* src, const char* dst) {
    if (src == nullptr || dst == nullptr) {
        return EINVAL;
    }
    Copy copy;
    uint32_t error = OpenSource(src, copy);
    if (error == 0) {
        error = OpenDestination(dst, copy);
    }
    if (error == 0) {
        error = CopyContents(copy);
    }
    if (error != 0 && copy.created) {
        unlink(dst);
    }
    return error;
}
