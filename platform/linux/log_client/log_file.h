// One rotating log file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <spdlog/sinks/rotating_file_sink.h>

namespace kivo::log {

/// Not thread-safe. Nothing is thrown but std::bad_alloc by the constructor.
class LogFile {
public:
    /// Keeps `fileCount` files (the current one included) of at most `fileSize` bytes each.
    LogFile(std::string path, uint32_t fileCount, uint32_t fileSize);

    /// Opens or creates the current file, and its directory when it is missing. Returns 0 or why it cannot be
    /// written, as an errno number; anything but a regular file is EINVAL.
    uint32_t Open();

    /// Writes a line and its line end, down to the system. Returns why this failed. After a failure, the next
    /// line opens the file anew, and so does a line after somebody has deleted the file.
    std::optional<std::string> Write(std::string_view line);

    const std::string& Path() const { return path_; }

private:
    // Nobody would ever find what is written to such a file.
    bool IsDeleted() const;

    std::string path_;
    uint32_t fileCount_;
    uint32_t fileSize_;
    std::shared_ptr<int> descriptor_;  // the sink's
    std::unique_ptr<spdlog::sinks::rotating_file_sink_st> sink_;
};

}  // namespace kivo::log
