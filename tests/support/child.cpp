#include "support/child.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

#include "support/eventually.h"
#include "support/process_state.h"

namespace support {

namespace {

// Only async-signal-safe calls between fork and exec.
[[noreturn]] void BecomeChild(char* const* argv, char* const* extra, int output) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    for (; *extra != nullptr; ++extra) {
        putenv(*extra);
    }
    execvp(argv[0], argv);
    _exit(127);
}

std::vector<char*> Pointers(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (const std::string& text : texts) {
        pointers.push_back(const_cast<char*>(text.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

Child::Child(const std::vector<std::string>& command, const std::vector<std::string>& extraEnvironment) {
    std::string path = std::filesystem::temp_directory_path() / "inspect-test-XXXXXX";
    const int output = mkostemp(path.data(), O_CLOEXEC | O_APPEND);
    if (output < 0) {
        throw std::runtime_error("no temporary file");
    }
    outputPath_ = path;
    const auto argv = Pointers(command);
    const auto extra = Pointers(extraEnvironment);
    pid_ = fork();
    if (pid_ == 0) {
        BecomeChild(argv.data(), extra.data(), output);
    }
    close(output);
    if (pid_ < 0) {
        throw std::runtime_error("fork failed");
    }
}

Child::~Child() {
    Kill();
    if (!outputPath_.empty()) {
        unlink(outputPath_.c_str());
    }
}

Child::Child(Child&& other) noexcept {
    *this = std::move(other);
}

Child& Child::operator=(Child&& other) noexcept {
    std::swap(pid_, other.pid_);
    std::swap(exitCode_, other.exitCode_);
    std::swap(outputPath_, other.outputPath_);
    return *this;
}

void Child::Signal(int signal) const {
    if (pid_ > 0 && !exitCode_) {
        kill(pid_, signal);
        if (signal == SIGSTOP) {
            Eventually([this] { return IsAtStandstill(pid_); });
        }
    }
}

void Child::Kill() {
    Signal(SIGKILL);
    Wait();
}

std::optional<int> Child::Wait(std::chrono::seconds limit) {
    if (pid_ <= 0) {
        return std::nullopt;
    }
    Eventually(
        [this] {
            if (exitCode_) {
                return true;
            }
            int status = 0;
            if (waitpid(pid_, &status, WNOHANG) != pid_) {
                return false;
            }
            exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            return true;
        },
        limit);
    return exitCode_;
}

std::string Child::Output() const {
    std::ostringstream text;
    text << std::ifstream(outputPath_).rdbuf();
    return text.str();
}

bool Child::EventuallyWrote(const std::string& text, size_t times) const {
    return Eventually([&] {
        const std::string output = Output();
        size_t count = 0;
        for (size_t at = 0; (at = output.find(text, at)) != std::string::npos; at += text.size()) {
            ++count;
        }
        return count >= times;
    });
}

Outcome Run(const std::vector<std::string>& command, const std::vector<std::string>& extraEnvironment) {
    Child child(command, extraEnvironment);
    const std::optional<int> exitCode = child.Wait();
    return {exitCode.value_or(-1), child.Output()};
}

}  // namespace support
