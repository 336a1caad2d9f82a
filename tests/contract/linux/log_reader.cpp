#include "linux/log_reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <map>
#include <sstream>
#include <stdexcept>

#include <gtest/gtest.h>

#include "support/temp_folder.h"

namespace support {

namespace {

std::vector<std::string> SplitLines(const std::string& contents) {
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t end = 0; (end = contents.find('\n', start)) != std::string::npos; start = end + 1) {
        lines.push_back(contents.substr(start, end - start));
    }
    EXPECT_EQ(contents.substr(start), "") << "the last line has no end";
    return lines;
}

}  // namespace

std::vector<std::string> FileLines(const std::filesystem::path& path) {
    return SplitLines(Contents(path));
}

std::optional<ParsedLine> Parse(const std::string& text) {
    static const std::map<std::string, uint32_t> kLevels = {{"error", 1}, {"warning", 2}, {"info", 3}};
    std::istringstream in(text);
    std::string date;
    std::string clock;
    std::string level;
    std::string origin;
    ParsedLine parsed;
    char colon = '\0';
    in >> date >> clock >> level >> parsed.client >> origin >> parsed.process >> colon >> parsed.thread;
    const size_t slash = origin.rfind('/');
    const size_t line = origin.rfind(':');
    if (!in || in.get() != ' ' || date.size() != 10 || clock.size() != 12 || !kLevels.contains(level) ||
        slash == std::string::npos || line == std::string::npos || line < slash || colon != ':') {
        return std::nullopt;
    }
    parsed.time = date + ' ' + clock;
    parsed.line.level = kLevels.at(level);
    parsed.line.unit = origin.substr(0, slash);
    if (const std::string module = origin.substr(slash + 1, line - slash - 1); module != "-") {
        parsed.line.module = static_cast<uint32_t>(std::stoul(module));
    }
    parsed.line.line = static_cast<uint32_t>(std::stoul(origin.substr(line + 1)));
    std::getline(in, parsed.line.text);
    return parsed;
}

StandardError::StandardError() : saved_(dup(STDERR_FILENO)) {
    // A pipe, not a file: it takes lines even where a test makes the disk full.
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("cannot make a pipe for standard error");
    }
    readEnd_ = ends[0];
    fcntl(readEnd_, F_SETFL, O_NONBLOCK);
    fcntl(ends[1], F_SETPIPE_SZ, 1 << 20);
    dup2(ends[1], STDERR_FILENO);
    close(ends[1]);
}

StandardError::~StandardError() {
    dup2(saved_, STDERR_FILENO);
    close(saved_);
    close(readEnd_);
}

std::vector<std::string> StandardError::Lines() {
    std::array<char, 4096> buffer{};
    for (ssize_t got = 0; (got = read(readEnd_, buffer.data(), buffer.size())) > 0;) {
        written_.append(buffer.data(), static_cast<size_t>(got));
    }
    return SplitLines(written_);
}

}  // namespace support
