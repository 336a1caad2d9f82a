// The file is written under a temporary name and renamed at the end.
#include "common/output_file.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace ominspect {
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

Result<std::unique_ptr<OutputFile>> OutputFile::Create(const std::string& path, bool replace) {
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0 && (!replace || S_ISDIR(status.st_mode))) {
        return SystemError(S_ISDIR(status.st_mode) ? EISDIR : EEXIST);
    }
    std::string temporary = path + ".part-XXXXXX";
    UniqueFd fd(mkostemp(temporary.data(), O_CLOEXEC));  // mode 0600
    if (!fd) {
        return SystemError();
    }
    const int number = fstat(fd.Get(), &status) == 0 ? 0 : errno;
    std::unique_ptr<OutputFile> file(new OutputFile(path, std::move(temporary), replace, std::move(fd), status));
    if (number != 0) {
        return SystemError(number);
    }
    return file;
}

std::optional<Error> OutputFile::Write(std::string_view data) {
    size_ += data.size();
    return WriteAll(fd_.Get(), data);
}

std::optional<Error> OutputFile::Commit(bool sync) {
    if (sync && fsync(fd_.Get()) != 0) {
        return SystemError();
    }
    if (!Rename()) {
        return SystemError();
    }
    temporary_.clear();
    if (sync) {
        SyncFolder(path_);
    }
    return std::nullopt;
}

// On failure errno says why.
bool OutputFile::Rename() {
    if (replace_) {
        return rename(temporary_.c_str(), path_.c_str()) == 0;
    }
    if (renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, path_.c_str(), RENAME_NOREPLACE) == 0) {
        return true;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return false;
    }
    // The file system does not have this call. A hard link also fails when the name is taken.
    if (link(temporary_.c_str(), path_.c_str()) != 0) {
        return false;
    }
    (void)unlink(temporary_.c_str());
    return true;
}

bool OutputFile::IsSame(const struct stat& status) const {
    return status.st_dev == device_ && status.st_ino == inode_;
}

std::optional<Error> ReplaceFile(const std::string& path, std::string_view text) {
    const auto file = OutputFile::Create(path, true);
    if (!file) {
        return file.Failure();
    }
    if (auto error = (*file)->Write(text)) {
        return error;
    }
    return (*file)->Commit(false);
}

}  // namespace ominspect
