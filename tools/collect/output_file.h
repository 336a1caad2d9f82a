// A file that appears under its name only when it is whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <sys/stat.h>

#include "fd/unique_fd.h"

namespace ominspect::collect {

// Written beside its final name with mode 0600; removed again unless Commit succeeded. All results are 0 or errno(3)
// numbers.
class OutputFile {
public:
    // With `replace` a file that exists is replaced by Commit, else it is EEXIST, now or then. Null with `error` set
    // when it cannot be made.
    static std::unique_ptr<OutputFile> Create(const std::string& path, bool replace, int& error);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    int Write(const void* data, std::size_t size);

    // Brings it to the disk and gives it its name.
    int Commit();

    const std::string& Path() const { return path_; }
    std::uint64_t Size() const { return size_; }

    // Whether it is the file that this status is of.
    bool IsSame(const struct stat& status) const;

private:
    OutputFile(std::string path, std::string temporary, bool replace, UniqueFd fd, const struct stat& status);
    int Rename();

    const std::string path_;
    std::string temporary_;  // empty: nothing to remove
    const bool replace_;
    const UniqueFd fd_;
    const dev_t device_;
    const ino_t inode_;
    std::uint64_t size_ = 0;
};

}  // namespace ominspect::collect
