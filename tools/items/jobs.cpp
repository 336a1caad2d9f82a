// One list; each job is moved on by looking at the clock and at its descriptors.
#include "items/jobs.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <limits>
#include <new>
#include <utility>
#include <vector>

#include <poll.h>

namespace ominspect::items {
namespace {

// A command's output is not looked at sooner than this. Most commands have ended by then, and what they wrote waits in
// the pipe: their end is the only thing that wakes this thread.
constexpr std::chrono::milliseconds kQuiet{20};

}  // namespace

void Jobs::Add(Id id, CommandSpec spec, Done done, Clock::time_point requested) {
    Job& job = jobs_.emplace_back();
    job.id = id;
    job.spec = std::move(spec);
    job.done = std::move(done);
    job.requested = requested;
    job.settled = requested + job.spec.settle;
}

void Jobs::Rename(Id id, Done done) {
    Job& job = jobs_.front();
    job.id = id;
    job.done = std::move(done);
}

void Jobs::Take(Jobs& other) {
    jobs_.splice(jobs_.end(), other.jobs_);
}

bool Jobs::IsAnySlow() const {
    const auto now = Clock::now();
    return std::any_of(jobs_.begin(), jobs_.end(), [now](const Job& job) { return job.child && now >= job.readFrom; });
}

void Jobs::Stop(Id id) {
    for (Job& job : jobs_) {
        if (job.id == id) {
            EndJob(job, CommandOutcome::End::kStopped, Clock::now());
        }
    }
}

void Jobs::StopAll() {
    const auto now = Clock::now();
    if (!abandonAt_) {
        abandonAt_ = now + settings_.termGrace + settings_.abandonGrace;
    }
    for (Job& job : jobs_) {
        EndJob(job, CommandOutcome::End::kStopped, now);
    }
}

void Jobs::Step() {
    Advance(Clock::now());
    Tell();
}

void Jobs::Advance(Clock::time_point now) {
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
        if (job.child) {
            ++running;
        }
    }
    for (Job& job : jobs_) {
        if (job.child || job.outcome) {
            continue;
        }
        if (running >= settings_.maxParallel) {
            continue;
        }
        StartJob(job);
        if (job.child) {
            ++running;
        }
    }
}

void Jobs::StartJob(Job& job) {
    int error = ENOMEM;
    try {
        auto child = Child::Start(job.spec);
        if (child) {
            job.child.emplace(std::move(*child));
            job.readFrom = Clock::now() + kQuiet;
            return;
        }
        error = child.Failure().number;
    } catch (const std::bad_alloc&) {
    }
    job.outcome = CommandOutcome{CommandOutcome::End::kNotStarted, error, {}};
}

void Jobs::EndJob(Job& job, CommandOutcome::End why, Clock::time_point now) const {
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

void Jobs::ReapJob(Job& job) {
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
void Jobs::Tell() {
    const auto now = Clock::now();
    std::list<Job> told;
    for (auto job = jobs_.begin(); job != jobs_.end();) {
        const auto next = std::next(job);
        if (job->outcome && now >= job->settled && job->spec.release) {
            job->settled = job->spec.release(now);
        }
        if (job->outcome && now >= job->settled) {
            told.splice(told.end(), jobs_, job);
        }
        job = next;
    }
    for (const Job& job : told) {
        job.done(*job.outcome);
    }
}

Jobs::Clock::time_point Jobs::NextDeadline() const {
    auto next = Clock::time_point::max();
    for (const Job& job : jobs_) {
        if (job.outcome) {
            next = std::min(next, job.settled);
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

// Without memory for the descriptors a moment passes instead.
void Jobs::Wait(int wake) {
    try {
        WaitFor(wake);
    } catch (const std::bad_alloc&) {
        (void)poll(nullptr, 0, static_cast<int>(kQuiet.count()));
    }
}

void Jobs::WaitFor(int wake) {
    const auto now = Clock::now();
    Clock::time_point until = NextDeadline();
    std::vector<pollfd> fds{{wake, POLLIN, 0}};
    for (const Job& job : jobs_) {
        if (!job.child) {
            continue;
        }
        fds.push_back({job.child->ExitFd(), POLLIN, 0});
        if (now < job.readFrom) {
            until = std::min(until, job.readFrom);
            continue;
        }
        fds.push_back({job.child->OutFd(), POLLIN, 0});
        fds.push_back({job.child->ErrFd(), POLLIN, 0});
    }
    int timeout = -1;
    if (until != Clock::time_point::max()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - now).count();
        timeout = static_cast<int>(std::clamp<std::int64_t>(left, 0, std::numeric_limits<int>::max()));
    }
    if (poll(fds.data(), fds.size(), timeout) <= 0) {
        return;
    }
    for (Job& job : jobs_) {
        if (job.child && now >= job.readFrom) {
            job.child->ReadOutput();
        }
    }
}

}  // namespace ominspect::items
