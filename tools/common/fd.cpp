// Reading and writing go on when a signal interrupts them.
#include "common/fd.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace ominspect {
namespace {

struct CloseFolder {
    void operator()(DIR* folder) const { (void)closedir(folder); }
};

}  // namespace

Result<Pipe> MakePipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        return SystemError();
    }
    Pipe pipe{UniqueFd(ends[0]), UniqueFd(ends[1])};
    if (fcntl(pipe.read.Get(), F_SETFL, O_NONBLOCK) != 0) {
        return SystemError();
    }
    return pipe;
}

std::optional<Error> WriteAll(int fd, std::string_view data) {
    while (!data.empty()) {
        const ssize_t written = write(fd, data.data(), data.size());
        if (written >= 0) {
            data.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            return SystemError();
        }
    }
    return std::nullopt;
}

Result<std::string> ReadSmallFile(const std::string& path, std::size_t maxSize) {
    const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!file || fstat(file.Get(), &status) != 0) {
        return SystemError();
    }
    if (!S_ISREG(status.st_mode)) {
        return OtherError("not a regular file");
    }
    std::string content;
    std::array<char, 16384> block;
    while (content.size() <= maxSize) {
        const ssize_t got = read(file.Get(), block.data(), block.size());
        if (got == 0) {
            return content;
        }
        if (got > 0) {
            content.append(block.data(), static_cast<std::size_t>(got));
        } else if (errno != EINTR) {
            return SystemError();
        }
    }
    return OtherError("larger than " + std::to_string(maxSize) + " bytes");
}

std::optional<Error> SortedNames(int base, const char* path, std::vector<std::string>& names) {
    UniqueFd fd(openat(base, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd) {
        return SystemError();
    }
    const std::unique_ptr<DIR, CloseFolder> folder(fdopendir(fd.Get()));
    if (folder == nullptr) {
        return SystemError();
    }
    (void)fd.Release();
    errno = 0;
    while (const dirent* entry = readdir(folder.get())) {
        const std::string name = static_cast<const char*>(entry->d_name);
        if (name != "." && name != "..") {
            names.push_back(name);
        }
    }
    const int number = errno;
    std::sort(names.begin(), names.end());
    return number == 0 ? std::nullopt : std::optional(SystemError(number));
}

}  // namespace ominspect
