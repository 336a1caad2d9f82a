// Looking at processes and files from a test: polling with a generous bound instead of waiting for a time.
#pragma once

#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include <sys/types.h>

namespace probe {

// Whether the condition came true; asked again and again for half a minute at most.
inline bool Eventually(const std::function<bool()>& condition) {
    for (int i = 0; i < 3000; ++i) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return condition();
}

// The state letter of proc(5), 'T' for a stopped process; 'X' for one that does not exist.
inline char StateOf(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string stat;
    return std::getline(file, stat) ? stat.at(stat.rfind(')') + 2) : 'X';
}

// Whether a process exists and has not ended (an ended one may still wait to be reaped by somebody else).
inline bool IsAlive(pid_t pid) {
    return StateOf(pid) != 'Z' && StateOf(pid) != 'X';
}

inline std::string Contents(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace probe
