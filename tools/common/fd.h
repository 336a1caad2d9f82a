// File descriptors, and what is read and written through them.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <unistd.h>

#include "common/error.h"

namespace ominspect {

// A descriptor with one owner, which closes it.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { Reset(); }
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) {
            Reset();
            fd_ = std::exchange(other.fd_, -1);
        }
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    explicit operator bool() const { return fd_ >= 0; }
    int Get() const { return fd_; }  // -1 when there is none, which poll(2) passes over

    // Gives the descriptor away.
    int Release() { return std::exchange(fd_, -1); }

    void Reset() {
        if (fd_ >= 0) {
            (void)close(fd_);
        }
        fd_ = -1;
    }

private:
    int fd_ = -1;
};

// Both ends are closed on exec.
struct Pipe {
    UniqueFd read;   // never blocks
    UniqueFd write;  // blocks
};
Result<Pipe> MakePipe();

// Writes everything, however many calls that takes.
std::optional<Error> WriteAll(int fd, std::string_view data);

// The contents of a regular file (links followed) of at most `maxSize` bytes. Never waits, not even for a pipe's
// writer.
Result<std::string> ReadSmallFile(const std::string& path, std::size_t maxSize);

// Fills in the names in the folder `path`, which may be relative to the open folder `base` (openat(2)), without "." and
// "..", sorted. After an error the names that could be read are there.
std::optional<Error> SortedNames(int base, const char* path, std::vector<std::string>& names);

}  // namespace ominspect
