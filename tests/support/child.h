// A child process of a test: started, watched, ended.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace support {

// Owns the process: what still runs is killed and reaped by the destructor. Its standard output and error go to one
// temporary file, so that no pipe can fill up. It dies with the test program.
class Child {
public:
    // `extraEnvironment` holds "NAME=value" texts.
    explicit Child(const std::vector<std::string>& command, const std::vector<std::string>& extraEnvironment = {});
    ~Child();
    Child(Child&& other) noexcept;
    Child& operator=(Child&& other) noexcept;
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    [[nodiscard]] pid_t Pid() const { return pid_; }

    // After SIGSTOP it stands still when this returns.
    void Signal(int signal) const;

    // SIGKILL, and reaped.
    void Kill();

    // Waits for its end, at most `limit`: the exit code, or 128 plus the signal that ended it; nothing when it still
    // runs.
    std::optional<int> Wait(std::chrono::seconds limit = std::chrono::seconds(60));

    // What it has written so far.
    [[nodiscard]] std::string Output() const;

    // Whether it comes to have written this so many times.
    [[nodiscard]] bool EventuallyWrote(const std::string& text, size_t times = 1) const;

private:
    pid_t pid_ = -1;
    std::optional<int> exitCode_;
    std::string outputPath_;
};

// Runs a command to its end.
struct Outcome {
    int exitCode;
    std::string output;
};
Outcome Run(const std::vector<std::string>& command, const std::vector<std::string>& extraEnvironment = {});

}  // namespace support
