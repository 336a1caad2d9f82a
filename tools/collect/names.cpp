// The names in a folder.
#include "names.h"

#include <algorithm>
#include <cerrno>
#include <memory>

#include <dirent.h>
#include <fcntl.h>

#include "fd/unique_fd.h"

namespace ominspect::collect {
namespace {

struct CloseDirectory {
    void operator()(DIR* directory) const { (void)closedir(directory); }
};

}  // namespace

int SortedNames(int base, const char* path, std::vector<std::string>& names) {
    UniqueFd folder(openat(base, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder) {
        return errno;
    }
    const std::unique_ptr<DIR, CloseDirectory> directory(fdopendir(folder.Get()));
    if (directory == nullptr) {
        return errno;
    }
    (void)folder.Release();
    errno = 0;
    while (const dirent* entry = readdir(directory.get())) {
        const std::string name = static_cast<const char*>(entry->d_name);
        if (name != "." && name != "..") {
            names.push_back(name);
        }
    }
    const int error = errno;
    std::sort(names.begin(), names.end());
    return error;
}

}  // namespace ominspect::collect
