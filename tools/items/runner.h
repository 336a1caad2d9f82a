// Runs commands side by side: one supervisor thread starts, watches, ends and reaps them, or the caller itself does.
#pragma once

#include <condition_variable>
#include <functional>
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
    // Called once per command, on the supervisor thread, or at a shutdown on that of Run; must not throw.
    using Done = Jobs::Done;
    using Settings = RunnerSettings;
    using Id = Jobs::Id;

    // Throws std::system_error when there is no thread or descriptor left.
    explicit CommandRunner(const Settings& settings);
    ~CommandRunner();
    CommandRunner(const CommandRunner&) = delete;
    CommandRunner& operator=(const CommandRunner&) = delete;

    // Starts a command as soon as there is a place for it. 0 when the runner shuts down: `done` is not called. Throws
    // std::bad_alloc, and has no effect then.
    Id Start(CommandSpec spec, Done done);

    // Called once with the name that a command will have if it is left to the supervisor. If it returns no Done or
    // throws std::bad_alloc, the command stays with the calling thread.
    using Leave = std::function<Done(Id)>;

    // What came of Run: an outcome, or a command that was left under `id`, or neither: the runner shuts down.
    struct Ran {
        std::optional<CommandOutcome> outcome;
        Id id = 0;
    };

    // Runs a command on the calling thread, at once and beside all others: a short one saves two switches between
    // threads. A longer one is left to the supervisor, so that the caller is free again after 20 ms. A shutdown stops
    // the command. Throws std::system_error when there is no descriptor left, and std::bad_alloc.
    Ran Run(CommandSpec spec, const Leave& leave);

    // Ends a command's group, or takes it out of the queue. Nothing happens if it has ended already.
    void Stop(Id id);

    // Stops all, waits until every Done and Run has returned, and ends the thread. Idempotent.
    void Shutdown();

private:
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
    Id NewId();
    bool HandOver(Jobs& jobs, Id id, Done& done);

    const Settings settings_;
    const UniqueFd wake_;

    std::mutex mutex_;  // guards the orders below, and the callers
    Jobs added_;        // what the supervisor is to go on with
    std::vector<Id> stops_;
    bool closing_ = false;
    Id lastId_ = 0;
    std::vector<int> callers_;  // their events
    std::condition_variable left_;
    std::thread thread_;
};

}  // namespace ominspect::items
