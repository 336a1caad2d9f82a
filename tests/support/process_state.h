// What proc(5) tells about a process.
#pragma once

#include <sys/types.h>

#include <fstream>
#include <string>

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

}  // namespace support
