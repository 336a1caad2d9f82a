// A file descriptor with one owner, closed with it.
#pragma once

#include <utility>

#include <unistd.h>

namespace ominspect {

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

}  // namespace ominspect
