// Runs commands side by side: one supervisor thread starts, watches, ends and reaps them all.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "child.h"
#include "command.h"
#include "common/fd.h"

namespace ominspect::owner {

// Member functions may be called from any thread. A Done function may call Start and Stop only.
class CommandRunner {
public:
    // Called once per command, on the supervisor thread; must not throw.
    using Done = std::function<void(const CommandOutcome&)>;

    struct Settings {
        unsigned maxParallel = 16;                     // commands that run at the same time; the others wait in order
        std::chrono::milliseconds termGrace{2000};     // between SIGTERM and SIGKILL to a group
        std::chrono::milliseconds abandonGrace{5000};  // at shutdown, between SIGKILL and giving a process up
    };

    // Throws std::system_error when there is no thread or descriptor left.
    explicit CommandRunner(const Settings& settings);
    ~CommandRunner();
    CommandRunner(const CommandRunner&) = delete;
    CommandRunner& operator=(const CommandRunner&) = delete;

    // Names a command.
    using Id = std::uint64_t;

    // Starts a command as soon as there is a place for it. 0 when the runner shuts down: `done` is not called.
    Id Start(CommandSpec spec, Done done);

    // Ends a command's group, or takes it out of the queue. Nothing happens if it has ended already.
    void Stop(Id id);

    // Stops all, waits until every Done has returned, and ends the thread. Idempotent.
    void Shutdown();

private:
    using Clock = std::chrono::steady_clock;

    struct Job {
        Id id = 0;
        CommandSpec spec;
        Done done;
        Clock::time_point requested;
        std::optional<Child> child;
        std::optional<CommandOutcome::End> ending;  // why its group is being ended
        Clock::time_point killAt;                   // while it is being ended: when SIGKILL follows SIGTERM
        bool killed = false;
        std::optional<CommandOutcome> outcome;  // there, but perhaps not told yet
    };

    void Supervise();
    void TakeOrders();
    void Advance(Clock::time_point now);
    static void StartJob(Job& job);
    void EndJob(Job& job, CommandOutcome::End why, Clock::time_point now);
    static void ReapJob(Job& job);
    void Tell();
    Clock::time_point NextDeadline() const;
    void WaitForSomething(Clock::time_point until);
    void Wake() const;

    const Settings settings_;
    const UniqueFd wake_;

    std::mutex mutex_;  // guards the orders below
    std::vector<Job> added_;
    std::vector<Id> stops_;
    bool closing_ = false;
    Id lastId_ = 0;

    std::list<Job> jobs_;                         // of the supervisor thread, in the order of the requests
    std::optional<Clock::time_point> abandonAt_;  // set when the supervisor shuts down
    std::thread thread_;
};

}  // namespace ominspect::owner
