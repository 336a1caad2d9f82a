// The supervisor is one loop over orders, deadlines and descriptors.
#include "runner.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <limits>
#include <system_error>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>

namespace ominspect::owner {
namespace {

UniqueFd MakeEvent() {
    UniqueFd event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!event) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    return event;
}

}  // namespace

CommandRunner::CommandRunner(const Settings& settings)
    : settings_(settings), wake_(MakeEvent()), thread_([this] { Supervise(); }) {}

CommandRunner::~CommandRunner() {
    Shutdown();
}

CommandRunner::Id CommandRunner::Start(CommandSpec spec, Done done) {
    Job job;
    job.spec = std::move(spec);
    job.done = std::move(done);
    job.requested = Clock::now();
    const std::lock_guard lock(mutex_);
    if (closing_) {
        return 0;
    }
    job.id = ++lastId_;
    added_.push_back(std::move(job));
    Wake();
    return lastId_;
}

void CommandRunner::Stop(Id id) {
    const std::lock_guard lock(mutex_);
    stops_.push_back(id);
    Wake();
}

void CommandRunner::Shutdown() {
    {
        const std::lock_guard lock(mutex_);
        closing_ = true;
        Wake();
    }
    if (thread_.joinable()) {
        thread_.join();
    }
}

void CommandRunner::Wake() const {
    (void)eventfd_write(wake_.Get(), 1);
}

void CommandRunner::Supervise() {
    for (;;) {
        TakeOrders();
        Advance(Clock::now());
        Tell();
        // Nothing is added any more once the supervisor knows that it shuts down.
        if (abandonAt_ && jobs_.empty()) {
            return;
        }
        WaitForSomething(NextDeadline());
    }
}

void CommandRunner::TakeOrders() {
    eventfd_t count = 0;
    (void)eventfd_read(wake_.Get(), &count);
    std::vector<Id> stops;
    bool closing = false;
    {
        const std::lock_guard lock(mutex_);
        std::move(added_.begin(), added_.end(), std::back_inserter(jobs_));
        added_.clear();
        stops.swap(stops_);
        closing = closing_;
    }
    const auto now = Clock::now();
    const bool stopAll = closing && !abandonAt_;
    if (stopAll) {
        abandonAt_ = now + settings_.termGrace + settings_.abandonGrace;
    }
    for (Job& job : jobs_) {
        const bool named = std::find(stops.begin(), stops.end(), job.id) != stops.end();
        if (named || stopAll) {
            EndJob(job, CommandOutcome::End::kStopped, now);
        }
    }
}

// Moves every command on as far as the time and the ended processes allow.
void CommandRunner::Advance(Clock::time_point now) {
    std::size_t running = 0;
    for (Job& job : jobs_) {
        if (job.child) {
            ReapJob(job);
        }
        if (job.outcome) {
            continue;
        }
        if (now >= job.requested + job.spec.limit) {
            EndJob(job, CommandOutcome::End::kTimeLimit, now);
        }
        if (job.ending && !job.killed && now >= job.killAt) {
            job.killed = true;
            job.child->SignalGroup(SIGKILL);
        }
        if (job.ending && abandonAt_ && now >= *abandonAt_) {
            job.outcome.emplace(CommandOutcome{*job.ending, 0, {}});
        }
        if (job.child && !job.spec.atOnce) {
            ++running;
        }
    }
    for (Job& job : jobs_) {
        if (job.child || job.outcome) {
            continue;
        }
        if (!job.spec.atOnce && running >= settings_.maxParallel) {
            continue;
        }
        StartJob(job);
        if (job.child && !job.spec.atOnce) {
            ++running;
        }
    }
}

void CommandRunner::StartJob(Job& job) {
    if (auto child = Child::Start(job.spec)) {
        job.child.emplace(std::move(*child));
    } else {
        job.outcome = CommandOutcome{CommandOutcome::End::kNotStarted, child.Failure().number, {}};
    }
}

void CommandRunner::EndJob(Job& job, CommandOutcome::End why, Clock::time_point now) {
    if (job.outcome || job.ending) {
        return;
    }
    if (!job.child) {
        const bool late = why == CommandOutcome::End::kTimeLimit;
        job.outcome = CommandOutcome{late ? CommandOutcome::End::kNeverStarted : why, 0, {}};
        return;
    }
    job.ending = why;
    job.killAt = now + settings_.termGrace;
    job.child->SignalGroup(SIGTERM);
    // A stopped process would not see the end that it is asked for.
    job.child->SignalGroup(SIGCONT);
}

void CommandRunner::ReapJob(Job& job) {
    auto outcome = job.child->Reap();
    if (!outcome) {
        return;
    }
    if (job.ending) {
        outcome->end = *job.ending;
    }
    job.outcome = std::move(outcome);
    job.child.reset();
}

// Tells the outcomes whose time has come. The job is gone before its function is called.
void CommandRunner::Tell() {
    const auto now = Clock::now();
    std::list<Job> told;
    for (auto job = jobs_.begin(); job != jobs_.end();) {
        const auto next = std::next(job);
        if (job->outcome && now >= job->requested + job->spec.settle) {
            told.splice(told.end(), jobs_, job);
        }
        job = next;
    }
    for (const Job& job : told) {
        job.done(*job.outcome);
    }
}

CommandRunner::Clock::time_point CommandRunner::NextDeadline() const {
    auto next = Clock::time_point::max();
    for (const Job& job : jobs_) {
        if (job.outcome) {
            next = std::min(next, job.requested + job.spec.settle);
        } else if (!job.ending) {
            next = std::min(next, job.requested + job.spec.limit);
        } else if (!job.killed) {
            next = std::min(next, job.killAt);
        } else if (abandonAt_) {
            next = std::min(next, *abandonAt_);
        }
    }
    return next;
}

void CommandRunner::WaitForSomething(Clock::time_point until) {
    std::vector<pollfd> fds{{wake_.Get(), POLLIN, 0}};
    for (const Job& job : jobs_) {
        if (!job.child) {
            continue;
        }
        for (const int fd : {job.child->ExitFd(), job.child->OutFd(), job.child->ErrFd()}) {
            fds.push_back({fd, POLLIN, 0});
        }
    }
    int timeout = -1;
    if (until != Clock::time_point::max()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
        timeout = static_cast<int>(std::clamp<std::int64_t>(left, 0, std::numeric_limits<int>::max()));
    }
    if (poll(fds.data(), fds.size(), timeout) <= 0) {
        return;
    }
    for (Job& job : jobs_) {
        if (job.child) {
            job.child->ReadOutput();
        }
    }
}

}  // namespace ominspect::owner
