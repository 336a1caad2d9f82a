// What proc(5) tells about a thread of the test program.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>

namespace support {

/// A line of the status file of the first thread of that name, without the line's own name; empty when there is none.
inline std::string ThreadStatus(const std::string& thread, const std::string& line) {
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        if (name != thread) {
            continue;
        }
        std::ifstream status(task.path() / "status");
        for (std::string text; std::getline(status, text);) {
            if (text.starts_with(line + ":\t")) {
                return text.substr(line.size() + 2);
            }
        }
    }
    return {};
}

/// How many KiB of addresses the program has in use.
inline long AddressSpace() {
    std::ifstream status("/proc/self/status");
    for (std::string text; std::getline(status, text);) {
        if (text.starts_with("VmSize:\t")) {
            return std::stol(text.substr(8));
        }
    }
    return 0;
}

/// How many threads of that name there are.
inline int ThreadCount(const std::string& thread) {
    int count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        count += name == thread ? 1 : 0;
    }
    return count;
}

}  // namespace support
