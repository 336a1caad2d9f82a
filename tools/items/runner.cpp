// The supervisor's loop, and that of a thread that runs one command itself.
#include "items/runner.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <system_error>
#include <utility>

#include <sys/eventfd.h>

namespace ominspect::items {
namespace {

UniqueFd MakeEvent() {
    UniqueFd event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!event) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    return event;
}

void Wake(int event) {
    (void)eventfd_write(event, 1);
}

void Drain(int event) {
    eventfd_t count = 0;
    (void)eventfd_read(event, &count);
}

}  // namespace

CommandRunner::CommandRunner(const Settings& settings)
    : settings_(settings), wake_(MakeEvent()), added_(settings), thread_([this] { Supervise(); }) {}

CommandRunner::~CommandRunner() {
    Shutdown();
}

CommandRunner::Id CommandRunner::Start(CommandSpec spec, Done done) {
    const std::lock_guard lock(mutex_);
    if (closing_) {
        return 0;
    }
    added_.Add(lastId_ + 1, std::move(spec), std::move(done), Jobs::Clock::now());
    ++lastId_;
    Wake(wake_.Get());
    return lastId_;
}

CommandRunner::Ran CommandRunner::Run(CommandSpec spec, const Leave& leave) {
    const Caller caller(*this);
    if (!caller.IsAdmitted()) {
        return {};
    }
    std::optional<CommandOutcome> outcome;
    Id id = 0;
    Done done;
    Jobs jobs(settings_);
    jobs.Add(
        0, std::move(spec), [&outcome](const CommandOutcome& told) { outcome = told; }, Jobs::Clock::now());
    for (;;) {
        jobs.Step();
        if (outcome && done) {
            done(*outcome);
            return {std::nullopt, id};
        }
        if (outcome) {
            return {std::move(outcome), 0};
        }
        if (id == 0 && jobs.IsAnySlow()) {
            id = NewId();
            try {
                done = leave(id);
            } catch (const std::bad_alloc&) {
            }
            if (done && HandOver(jobs, id, done)) {
                return {std::nullopt, id};
            }
        }
        jobs.Wait(caller.Event());
        if (caller.MustEnd()) {
            jobs.StopAll();
        }
    }
}

CommandRunner::Id CommandRunner::NewId() {
    const std::lock_guard lock(mutex_);
    return ++lastId_;
}

// Not while the runner shuts down: its supervisor may have ended.
bool CommandRunner::HandOver(Jobs& jobs, Id id, Done& done) {
    const std::lock_guard lock(mutex_);
    if (closing_) {
        return false;
    }
    jobs.Rename(id, std::move(done));
    added_.Take(jobs);
    Wake(wake_.Get());
    return true;
}

void CommandRunner::Stop(Id id) {
    const std::lock_guard lock(mutex_);
    stops_.push_back(id);
    Wake(wake_.Get());
}

void CommandRunner::Shutdown() {
    std::unique_lock lock(mutex_);
    closing_ = true;
    Wake(wake_.Get());
    for (const int event : callers_) {
        Wake(event);
    }
    left_.wait(lock, [this] { return callers_.empty(); });
    lock.unlock();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void CommandRunner::Supervise() {
    Jobs jobs(settings_);
    for (;;) {
        const bool closing = TakeOrders(jobs);
        jobs.Step();
        // Nothing is added any more once the supervisor knows that it shuts down.
        if (closing && jobs.IsEmpty()) {
            return;
        }
        jobs.Wait(wake_.Get());
    }
}

// Whether the runner shuts down.
bool CommandRunner::TakeOrders(Jobs& jobs) {
    Drain(wake_.Get());
    std::unique_lock lock(mutex_);
    jobs.Take(added_);
    const std::vector<Id> stops = std::exchange(stops_, {});
    const bool closing = closing_;
    lock.unlock();
    for (const Id id : stops) {
        jobs.Stop(id);
    }
    if (closing) {
        jobs.StopAll();
    }
    return closing;
}

CommandRunner::Caller::Caller(CommandRunner& runner) : runner_(runner), event_(MakeEvent()) {
    const std::lock_guard lock(runner_.mutex_);
    admitted_ = !runner_.closing_;
    if (admitted_) {
        runner_.callers_.push_back(event_.Get());
    }
}

CommandRunner::Caller::~Caller() {
    const std::lock_guard lock(runner_.mutex_);
    std::erase(runner_.callers_, event_.Get());
    runner_.left_.notify_all();
}

bool CommandRunner::Caller::MustEnd() const {
    const std::lock_guard lock(runner_.mutex_);
    if (runner_.closing_) {
        Drain(event_.Get());
    }
    return runner_.closing_;
}

}  // namespace ominspect::items
