// Reading a configuration file whole, bounded and only if it is a regular one.
#include "small_file.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fd/unique_fd.h"

namespace ominspect::owner {

std::optional<std::string> ReadSmallFile(const std::string& path, std::size_t maxSize, std::string& error) {
    const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!file || fstat(file.Get(), &status) != 0) {
        error = strerrordesc_np(errno);
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode)) {
        error = "not a regular file";
        return std::nullopt;
    }
    std::string out(maxSize + 1, '\0');
    std::size_t size = 0;
    for (ssize_t got = 1; got > 0 && size < out.size(); size += static_cast<std::size_t>(got)) {
        got = read(file.Get(), out.data() + size, out.size() - size);
        if (got < 0) {
            error = strerrordesc_np(errno);
            return std::nullopt;
        }
    }
    if (size > maxSize) {
        error = "larger than " + std::to_string(maxSize) + " bytes";
        return std::nullopt;
    }
    out.resize(size);
    return out;
}

}  // namespace ominspect::owner
