// An owned file descriptor.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace kivo {

class UniqueFd {
public:
    explicit UniqueFd(int fd = -1) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~UniqueFd() { Close(); }

    explicit operator bool() const { return fd_ >= 0; }
    int Get() const { return fd_; }

    /// Closes now. Returns 0 or an errno number: some file systems report a failed write only here.
    int Close() {
        const int fd = std::exchange(fd_, -1);
        return fd >= 0 && close(fd) != 0 && errno != EINTR ? errno : 0;
    }

private:
    int fd_;
};

}  // namespace kivo
