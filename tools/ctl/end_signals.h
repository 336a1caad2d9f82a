// Ctrl-C, SIGTERM and the end of the terminal, readable as a descriptor.
#pragma once

namespace ominspect::ctl {

// Blocks SIGINT, SIGTERM and SIGHUP in this thread and in those it starts later; they stay blocked, since the program
// ends with the command. Made before any other thread.
class EndSignals {
public:
    EndSignals();
    ~EndSignals();
    EndSignals(const EndSignals&) = delete;
    EndSignals& operator=(const EndSignals&) = delete;

    // Readable while one of them was sent and not taken.
    int Fd() const { return fd_; }

    // Takes one, so that another can be noticed.
    void Take() const;

private:
    int fd_ = -1;
};

}  // namespace ominspect::ctl
