// A terminal of a test's own.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>

namespace support {

/// A terminal that is no process's controlling one: nobody gets a signal when it is closed.
class BareTerminal {
public:
    BareTerminal() : fd_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)) {
        EXPECT_EQ(grantpt(fd_), 0);
        EXPECT_EQ(unlockpt(fd_), 0);
        path_ = ptsname(fd_);
    }
    ~BareTerminal() { Close(); }
    BareTerminal(const BareTerminal&) = delete;
    BareTerminal& operator=(const BareTerminal&) = delete;

    [[nodiscard]] const std::string& Path() const { return path_; }

    /// What has been written to it so far.
    const std::string& Output() {
        std::array<char, 4096> buffer;
        for (ssize_t got = 0; (got = read(fd_, buffer.data(), buffer.size())) > 0;) {
            output_.append(buffer.data(), static_cast<size_t>(got));
        }
        return output_;
    }

    void Close() {
        if (fd_ >= 0) {
            close(fd_);
        }
        fd_ = -1;
    }

private:
    int fd_;
    std::string path_;
    std::string output_;
};

}  // namespace support
