// Runs one entry's copy function in a process of its own instead of on a thread: a copy that hangs can be ended, one
// that crashes harms nothing else, and what it prints can be caught.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <sys/types.h>

#include "common/fd.h"
#include "entry.h"

namespace ominspect::collect {

// Owns the process: one that still runs is killed and reaped with it.
class CopyProcess {
public:
    // Starts the copy. To be called while the program has one thread only.
    static Result<std::unique_ptr<CopyProcess>> Start(const Entry& entry, const CopyRules& rules);

    // Starts the product's hook for logs of its own; nothing guards what it does.
    static Result<std::unique_ptr<CopyProcess>> StartVendorHook();
    ~CopyProcess();
    CopyProcess(const CopyProcess&) = delete;
    CopyProcess& operator=(const CopyProcess&) = delete;

    // Waits until the process has reported something, `otherFd` is readable or the time is over, and takes in the
    // reports. False when the process has ended.
    bool Watch(int otherFd, int milliseconds);

    // Ends the copy at its next directory entry.
    void Stop();

    // Ends the process where it is, with all that it started.
    void Kill() const;

    // Copied so far.
    std::uint64_t Files() const;
    std::uint64_t Bytes() const;

    // The file that was being copied when the process ended; empty when there was none.
    std::string Current() const;

    // What the hook returned.
    int HookResult() const;

    const FirstOf<Failure>& Failures() const { return failures_; }
    const FirstOf<std::string>& Messages() const { return messages_; }

    // Whether the copy was ended before it had seen everything.
    bool WasEndedEarly() const { return endedEarly_; }

    // To be called when Watch has returned false: how the process died; empty when it ended well.
    std::string Death();

private:
    struct Shared;
    struct Unmap {
        void operator()(Shared* shared) const;
    };

    CopyProcess(std::unique_ptr<Shared, Unmap> shared, pid_t pid, UniqueFd records, UniqueFd errors);
    // What the process does; its reports go to the descriptor.
    using Body = std::function<void(Shared& shared, int records)>;
    static Result<std::unique_ptr<CopyProcess>> Start(const Body& body);
    [[noreturn]] static void Run(const Body& body, Shared& shared, int records);
    bool ReadRecords();
    void ReadErrors(bool toTheEnd);
    void TakeIn(const std::string& kind, const std::string& first, const std::string& second);

    std::unique_ptr<Shared, Unmap> shared_;
    pid_t pid_;
    UniqueFd records_;
    UniqueFd errors_;
    std::string unread_;       // the beginning of a record
    std::string unreadError_;  // the beginning of a line
    FirstOf<Failure> failures_;
    FirstOf<std::string> messages_;
    bool endedEarly_ = false;
};

}  // namespace ominspect::collect
