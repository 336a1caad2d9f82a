// A file that appears under its name only when it is whole: written under another one, synchronised, renamed.
#include "output_file.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace ominspect::collect {
namespace {

std::string FolderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

// The name itself lasts only once its folder is on the disk. Not every file system can do that, and the file is whole
// either way.
void SyncFolder(const std::string& path) {
    const UniqueFd folder(open(FolderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder) {
        (void)fsync(folder.Get());
    }
}

}  // namespace

OutputFile::OutputFile(std::string path, std::string temporary, bool replace, UniqueFd fd, const struct stat& status)
    : path_(std::move(path)),
      temporary_(std::move(temporary)),
      replace_(replace),
      fd_(std::move(fd)),
      device_(status.st_dev),
      inode_(status.st_ino) {}

OutputFile::~OutputFile() {
    if (!temporary_.empty()) {
        (void)unlink(temporary_.c_str());
    }
}

std::unique_ptr<OutputFile> OutputFile::Create(const std::string& path, bool replace, int& error) {
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0 && (!replace || S_ISDIR(status.st_mode))) {
        error = S_ISDIR(status.st_mode) ? EISDIR : EEXIST;
        return nullptr;
    }
    std::string temporary = path + ".part-XXXXXX";
    UniqueFd fd(mkostemp(temporary.data(), O_CLOEXEC));  // mode 0600
    if (!fd) {
        error = errno;
        return nullptr;
    }
    error = fstat(fd.Get(), &status) == 0 ? 0 : errno;
    std::unique_ptr<OutputFile> file(new OutputFile(path, std::move(temporary), replace, std::move(fd), status));
    return error == 0 ? std::move(file) : nullptr;
}

int OutputFile::Write(const void* data, std::size_t size) {
    const char* rest = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t written = write(fd_.Get(), rest, size);
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return errno;
        }
        rest += written;
        size -= static_cast<std::size_t>(written);
        size_ += static_cast<std::uint64_t>(written);
    }
    return 0;
}

int OutputFile::Commit() {
    if (fsync(fd_.Get()) != 0) {
        return errno;
    }
    if (const int error = Rename(); error != 0) {
        return error;
    }
    temporary_.clear();
    SyncFolder(path_);
    return 0;
}

int OutputFile::Rename() {
    if (replace_) {
        return rename(temporary_.c_str(), path_.c_str()) == 0 ? 0 : errno;
    }
    if (renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, path_.c_str(), RENAME_NOREPLACE) == 0) {
        return 0;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return errno;
    }
    // A file system without that: a link fails as well when the name is taken.
    if (link(temporary_.c_str(), path_.c_str()) != 0) {
        return errno;
    }
    (void)unlink(temporary_.c_str());
    return 0;
}

bool OutputFile::IsSame(const struct stat& status) const {
    return status.st_dev == device_ && status.st_ino == inode_;
}

}  // namespace ominspect::collect
