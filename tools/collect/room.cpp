#include "room.h"

#include <filesystem>
#include <system_error>

#include <sys/statvfs.h>

namespace ominspect::collect {

namespace fs = std::filesystem;

std::optional<std::uint64_t> FreeBytes(const std::string& path) {
    struct statvfs status {};
    fs::path existing = path;
    while (statvfs(existing.c_str(), &status) != 0) {
        if (existing == existing.parent_path()) {
            return std::nullopt;
        }
        existing = existing.parent_path();
    }
    return std::uint64_t{status.f_bavail} * status.f_frsize;
}

std::uint64_t ReplacedBytes(const std::vector<Entry>& entries) {
    std::uint64_t bytes = 0;
    for (const Entry& entry : entries) {
        std::error_code error;
        for (fs::recursive_directory_iterator file(entry.destination, error), end; !error && file != end;
             file.increment(error)) {
            std::error_code ignored;
            if (fs::is_regular_file(file->symlink_status(ignored))) {
                const std::uintmax_t size = file->file_size(ignored);
                bytes += ignored ? 0 : size;
            }
        }
    }
    return bytes;
}

}  // namespace ominspect::collect
