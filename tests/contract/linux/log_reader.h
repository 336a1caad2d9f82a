// The log files of a test, and what it writes to standard error.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform_control.h"

namespace support {

/// Where KIVO_LOG_DIR points during a test.
std::filesystem::path LogDirectory();

/// The lines of one file, without their line ends. A last line without one is a failure of the test.
std::vector<std::string> FileLines(const std::filesystem::path& path);

/// A line of a log, taken apart.
struct ParsedLine {
    std::string time;
    std::string client;
    long process = 0;
    long thread = 0;
    LogLine line;
};

/// Nothing when it is no log line.
std::optional<ParsedLine> Parse(const std::string& text);

/// What is written to standard error while this lives.
class StandardError {
public:
    StandardError();
    StandardError(const StandardError&) = delete;
    StandardError& operator=(const StandardError&) = delete;
    ~StandardError();

    /// All lines so far.
    std::vector<std::string> Lines();

private:
    int saved_;
    int readEnd_ = -1;
    std::string written_;
};

}  // namespace support
