// A file that appears under its name only when it is whole.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <sys/stat.h>

#include "common/fd.h"

namespace ominspect {

// Written beside its final name with mode 0600; removed again unless Commit succeeded.
class OutputFile {
public:
    // With `replace` a file that exists is replaced by Commit; without, that is EEXIST, now or then.
    static Result<std::unique_ptr<OutputFile>> Create(const std::string& path, bool replace);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    std::optional<Error> Write(std::string_view data);

    // Gives it its name. With `sync`, which may take a while, both are on the disk afterwards; without, a loss of power
    // may bring the older file back.
    std::optional<Error> Commit(bool sync = true);

    const std::string& Path() const { return path_; }
    const std::string& TemporaryPath() const { return temporary_; }  // where it is until then
    std::uint64_t Size() const { return size_; }

    // Whether it is the file that this status is of.
    bool IsSame(const struct stat& status) const;

private:
    OutputFile(std::string path, std::string temporary, bool replace, UniqueFd fd, const struct stat& status);
    bool Rename();

    const std::string path_;
    std::string temporary_;  // empty: nothing to remove
    const bool replace_;
    const UniqueFd fd_;
    const dev_t device_;
    const ino_t inode_;
    std::uint64_t size_ = 0;
};

// Replaces a file by one with this text, or makes it, without waiting for the disk. Whoever reads it meanwhile sees the
// old file or the new one.
std::optional<Error> ReplaceFile(const std::string& path, std::string_view text);

}  // namespace ominspect
