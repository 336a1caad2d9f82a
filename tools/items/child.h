// A running command: a child process that leads a process group of its own.
#pragma once

#include <optional>
#include <string>

#include <sys/types.h>

#include "common/fd.h"
#include "items/command.h"

namespace ominspect::items {

// Used by one thread. The command sees /dev/null as its input, two pipes as its outputs, no other descriptor, an
// empty signal mask, default signal dispositions, and the environment with INSPECT_ITEM and INSPECT_CMD. The process
// must not ignore SIGCHLD, or exit statuses are lost.
class Child {
public:
    // Starts the command. The error has the system's number. Throws std::bad_alloc; a child that has started needs no
    // memory any more.
    static Result<Child> Start(const CommandSpec& spec);

    // Kills the whole group if the leader has not been reaped, and leaves its reaping to whoever inherits it.
    ~Child();
    Child(Child&& other) noexcept;
    Child& operator=(Child&&) = delete;
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // Becomes readable when the leader ends.
    int ExitFd() const { return exit_.Get(); }

    // Readable while there is output to be taken with ReadOutput; -1 once the stream has ended.
    int OutFd() const { return out_.fd.Get(); }
    int ErrFd() const { return err_.fd.Get(); }

    // Takes some output of each stream without waiting.
    void ReadOutput();

    // Sends a signal to the whole group.
    void SignalGroup(int signal) const;

    // When the leader has ended, takes the rest of the output, ends what is left of the group, and reaps the leader.
    // Returns nothing while the leader still runs.
    std::optional<CommandOutcome> Reap();

private:
    struct Stream {
        UniqueFd fd;
        std::string text;
    };

    Child(pid_t pid, UniqueFd exitFd, Stream out, Stream err);
    static bool ReadSome(Stream& stream);

    pid_t pid_;  // 0 once reaped; until then neither it nor the group's number can name anything else
    UniqueFd exit_;
    Stream out_;
    Stream err_;
};

}  // namespace ominspect::items
