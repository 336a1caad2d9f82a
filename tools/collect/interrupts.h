// How often the user has asked to end.
#pragma once

namespace ominspect::collect {

// Reads a signalfd(2), which stays the caller's.
class Interrupts {
public:
    explicit Interrupts(int signalFd) : fd_(signalFd) {}

    int Fd() const { return fd_; }

    // How many signals came so far. Never waits.
    int Count();

private:
    int fd_;
    int count_ = 0;
};

}  // namespace ominspect::collect
