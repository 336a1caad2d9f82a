// One run of a command: what is asked for, and what came of it.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace ominspect::items {

struct CommandSpec {
    std::vector<std::string> argv;  // the program's absolute path first; never empty
    std::string item;               // its INSPECT_ITEM
    std::string argument;           // its INSPECT_CMD
    // Counted from the request, so that the time spent waiting for a free place is included.
    std::chrono::milliseconds limit{0};
    // The outcome is told this long after the request at the earliest.
    std::chrono::milliseconds settle{0};
    // Asked right before that, on the thread that tells it: when it may be told. After `now`: it is asked again then;
    // otherwise it is told. Empty: at once. Must not throw.
    using Time = std::chrono::steady_clock::time_point;
    std::function<Time(Time now)> release{};
};

// The beginning of what a command wrote, each stream at most kMaxOutput bytes; the rest was read and dropped.
struct CommandOutput {
    static constexpr std::size_t kMaxOutput = 4096;
    std::string out;
    std::string err;
};

struct CommandOutcome {
    enum class End {
        kExited,        // `code` is its exit status
        kSignalled,     // `code` is the signal that ended it
        kNotStarted,    // `code` is the error number
        kTimeLimit,     // ended because its limit passed
        kNeverStarted,  // its limit passed while it waited for a free place
        kStopped        // ended, or not started, because it was stopped
    };
    End end = End::kStopped;
    int code = 0;
    CommandOutput output;
};

}  // namespace ominspect::items
