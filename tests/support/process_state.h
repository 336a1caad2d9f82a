// What proc(5) tells about a process.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

namespace support {

/// The text of a line of a process's status file; empty when there is none.
inline std::string StatusLine(pid_t pid, const std::string& name) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(name + ":\t")) {
            return line.substr(name.size() + 2);
        }
    }
    return {};
}

/// The state letter of a process, 'T' for a stopped one; 'X' for one that does not exist.
inline char StateOf(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string stat;
    return std::getline(file, stat) ? stat.at(stat.rfind(')') + 2) : 'X';
}

/// Whether a process exists and has not ended; an ended one may still wait to be reaped by somebody else.
inline bool IsAlive(pid_t pid) {
    return StateOf(pid) != 'Z' && StateOf(pid) != 'X';
}

/// Whether no thread of a process runs: all are stopped, or it has ended. kill(2) returns before they are.
inline bool IsAtStandstill(pid_t pid) {
    std::error_code gone;
    std::filesystem::directory_iterator thread("/proc/" + std::to_string(pid) + "/task", gone);
    for (; !gone && thread != std::filesystem::directory_iterator(); thread.increment(gone)) {
        const char state = StateOf(std::stoi(thread->path().filename()));
        if (state != 'T' && state != 'Z' && state != 'X') {
            return false;
        }
    }
    return true;
}

/// How many descriptors a process has open.
inline std::size_t Descriptors(pid_t pid) {
    const std::filesystem::directory_iterator entries("/proc/" + std::to_string(pid) + "/fd");
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

/// Memory of the process's own in KiB: what it has written to (proc(5), smaps_rollup); -1 when there is none to tell.
inline long PrivateMemory(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/smaps_rollup");
    for (std::string word; file >> word;) {
        long kilobytes = 0;
        if (word == "Private_Dirty:" && file >> kilobytes) {
            return kilobytes;
        }
    }
    return -1;
}

}  // namespace support
