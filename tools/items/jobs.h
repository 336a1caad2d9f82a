// Commands that one thread runs side by side.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <optional>

#include "items/child.h"
#include "items/command.h"

namespace ominspect::items {

// What the commands of one owner have in common.
struct RunnerSettings {
    unsigned maxParallel = 16;                     // commands that run at the same time; the others wait in order
    std::chrono::milliseconds termGrace{2000};     // between SIGTERM and SIGKILL to a group
    std::chrono::milliseconds abandonGrace{5000};  // at shutdown, between SIGKILL and giving a process up
};

// Starts, watches, ends and reaps commands. Used by one thread, which calls Step and Wait in turn. Only Add needs
// memory and throws std::bad_alloc: a command for which there is none later counts as one that cannot be started.
class Jobs {
public:
    using Clock = std::chrono::steady_clock;
    // Names a command.
    using Id = std::uint64_t;
    // Called once per command, by Step; must not throw.
    using Done = std::function<void(const CommandOutcome&)>;

    explicit Jobs(const RunnerSettings& settings) : settings_(settings) {}

    // A command that is to be run as soon as there is a place for it.
    void Add(Id id, CommandSpec spec, Done done, Clock::time_point requested);

    // Gives the only command another name; `done` is now told of its outcome.
    void Rename(Id id, Done done);

    // Goes on with all commands of `other`.
    void Take(Jobs& other);

    // Ends a command, or takes it out of the queue. Nothing happens if it has ended already.
    void Stop(Id id);

    // Whether a command has run for so long that its output is read while it runs.
    [[nodiscard]] bool IsAnySlow() const;

    // Ends all commands; one that does not end in time is given up.
    void StopAll();

    // Moves every command on as far as the time and the ended processes allow, and tells the outcomes whose time has
    // come.
    void Step();

    // Waits until there is something for Step to do, or `wake` is readable.
    void Wait(int wake);

    [[nodiscard]] bool IsEmpty() const { return jobs_.empty(); }

private:
    struct Job {
        Id id = 0;
        CommandSpec spec;
        Done done;
        Clock::time_point requested;
        Clock::time_point settled;  // its outcome is not told before
        std::optional<Child> child;
        Clock::time_point readFrom;                 // while it runs: when its output is looked at first
        std::optional<CommandOutcome::End> ending;  // why its group is being ended
        Clock::time_point killAt;                   // while it is being ended: when SIGKILL follows SIGTERM
        bool killed = false;
        std::optional<CommandOutcome> outcome;  // there, but perhaps not told yet
    };

    void Advance(Clock::time_point now);
    static void StartJob(Job& job);
    void EndJob(Job& job, CommandOutcome::End why, Clock::time_point now) const;
    static void ReapJob(Job& job);
    void Tell();
    void WaitFor(int wake);
    [[nodiscard]] Clock::time_point NextDeadline() const;

    const RunnerSettings settings_;
    std::list<Job> jobs_;                         // in the order of the requests
    std::optional<Clock::time_point> abandonAt_;  // set when all are to end
};

}  // namespace ominspect::items
