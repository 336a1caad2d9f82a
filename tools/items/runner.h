// Runs commands side by side: one supervisor thread starts, watches, ends and reaps them, or the caller itself does.
#pragma once

#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "common/fd.h"
#include "items/command.h"
#include "items/jobs.h"

namespace ominspect::items {

// Member functions may be called from any thread. A Done function may call Start and Stop only.
class CommandRunner {
public:
    // Called once per command, on the supervisor thread; must not throw.
    using Done = Jobs::Done;
    using Settings = RunnerSettings;
    using Id = Jobs::Id;

    // Throws std::system_error when there is no thread or descriptor left.
    explicit CommandRunner(const Settings& settings);
    ~CommandRunner();
    CommandRunner(const CommandRunner&) = delete;
    CommandRunner& operator=(const CommandRunner&) = delete;

    // Starts a command as soon as there is a place for it. 0 when the runner shuts down: `done` is not called.
    Id Start(CommandSpec spec, Done done);

    // Runs a command on the calling thread, at once and beside all others: who waits for it anyway saves two switches
    // between threads. Nothing when the runner shuts down; a shutdown meanwhile stops the command. Throws
    // std::system_error when there is no descriptor left.
    std::optional<CommandOutcome> Run(CommandSpec spec);

    // Ends a command's group, or takes it out of the queue. Nothing happens if it has ended already.
    void Stop(Id id);

    // Stops all, waits until every Done and Run has returned, and ends the thread. Idempotent.
    void Shutdown();

private:
    struct Order {
        Id id;
        CommandSpec spec;
        Done done;
        Jobs::Clock::time_point requested;
    };

    // A thread within Run.
    class Caller {
    public:
        explicit Caller(CommandRunner& runner);
        ~Caller();
        Caller(const Caller&) = delete;
        Caller& operator=(const Caller&) = delete;

        // Readable when the runner shuts down.
        [[nodiscard]] int Event() const { return event_.Get(); }
        [[nodiscard]] bool IsAdmitted() const { return admitted_; }
        [[nodiscard]] bool MustEnd() const;

    private:
        CommandRunner& runner_;
        const UniqueFd event_;
        bool admitted_ = false;
    };

    void Supervise();
    bool TakeOrders(Jobs& jobs);

    const Settings settings_;
    const UniqueFd wake_;

    std::mutex mutex_;  // guards the orders below, and the callers
    std::vector<Order> added_;
    std::vector<Id> stops_;
    bool closing_ = false;
    Id lastId_ = 0;
    std::vector<int> callers_;  // their events
    std::condition_variable left_;
    std::thread thread_;
};

}  // namespace ominspect::items
