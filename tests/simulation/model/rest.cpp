// What a server may still have when the world is at rest, and what it has beyond that.
#include <algorithm>
#include <set>

#include "model/checker.h"
#include "world/journal.h"

namespace sim::model {

std::vector<std::string> Checker::Names() const {
    std::vector<std::string> names;
    const auto note = [](void* context, const SimEntry& entry) {
        static_cast<std::vector<std::string>*>(context)->emplace_back(entry.name);
    };
    if (!ends_) {
        (void)visitTable_(note, &names);
    }
    return names;
}

std::optional<bool> Checker::IsStopping(uint32_t taskId) const {
    struct Wanted {
        uint32_t taskId;
        std::optional<bool> isStopping{};
    } wanted{taskId};
    const auto note = [](void* context, const SimJob& job) {
        auto& asked = *static_cast<Wanted*>(context);
        if (job.taskId == asked.taskId) {
            asked.isStopping = job.stopFlag;
        }
    };
    if (!ends_) {
        visitJobs_(note, &wanted);
    }
    return wanted.isStopping;
}

// Without the model: a timer that has waited for longer than any item's limit has none. One that is to stop ends soon.
bool Checker::HasOnlyTimers() const {
    constexpr Micros kLongest = 600 * kSecond;
    bool stopped = false;
    const auto note = [](void* context, const SimJob& job) {
        bool& any = *static_cast<bool*>(context);
        any = any || job.stopFlag;
    };
    visitJobs_(note, &stopped);
    return !stopped && std::ranges::all_of(jobThreads_, [](const auto& entry) {
        const std::optional<Micros>& since = entry.second.waitsSince;
        return since && Now() - *since > kLongest;
    });
}

bool Checker::IsAtRest(const Process& process) {
    const bool waits = std::ranges::any_of(process.tasks, [](const auto& task) { return !task->queue.empty(); });
    if (handled_ || waits || ends_) {
        return false;
    }
    if (!Compares(process)) {
        return HasOnlyTimers();
    }
    const auto isHeartbeat = [this](const auto& part) { return part.first == heartbeat_; };
    const auto others = parts_.size() - static_cast<size_t>(std::ranges::count_if(parts_, isHeartbeat));
    return others <= state_.jobs.size() && std::ranges::all_of(state_.jobs, [](const auto& entry) {
               const Job& job = entry.second;
               return job.kind == Job::Kind::kWait && job.timeout == 0 && !job.stopFlag;
           });
}

// A map's node is one block, and so is a text that does not fit into its string. Without the model the registry counts
// as empty, which it is when all items were taken back.
int64_t Checker::SpareBlocks(const Process& process) {
    static constexpr auto kBlocksOf = [](const std::string& name) { return name.size() > 15 ? 2 : 1; };
    int64_t known = 0;
    const auto add = [](void* context, const SimEntry& entry) {
        *static_cast<int64_t*>(context) += kBlocksOf(entry.name) + (entry.requesters.first != nullptr ? 1 : 0);
    };
    (void)visitTable_(add, &known);
    if (Compares(process)) {
        for (const auto& [name, owner] : state_.registry) {
            known += kBlocksOf(name);
        }
    }
    return process.blocks - known;
}

// A start that was cut short by a failed allocation or a refused subscription leaves fewer.
void Checker::CheckBlocks(const Process& process, int64_t spareBlocks) {
    const int64_t blocks = SpareBlocks(process);
    if (blocks > spareBlocks || (blocks < spareBlocks && Compares(process) && !refused_)) {
        Violation("at rest the server has " + std::to_string(blocks) + " blocks of memory instead of " +
                  std::to_string(spareBlocks));
    }
}

void Checker::CheckTable() const {
    const auto check = [](void* /*context*/, const SimEntry& entry) {
        if (entry.startCount != 0 || entry.requesters.count != 0) {
            Violation(std::string("at rest there are runs or requesters of ") + entry.name);
        }
    };
    // After a count has wrapped, its entry's run is never counted as ended.
    if ((visitTable_(check, nullptr) != 0 || busy_) && !state_.wrapped) {
        Violation("at rest the server is busy");
    }
}

// Each job has its thread.
void Checker::CheckJobs() const {
    std::set<uint32_t> jobs;
    for (const auto& [thread, job] : jobThreads_) {
        jobs.insert(job.job);
    }
    const auto check = [](void* context, const SimJob& job) {
        if (static_cast<std::set<uint32_t>*>(context)->erase(job.taskId) == 0) {
            Violation("at rest job " + std::to_string(job.taskId) + " has no thread");
        }
    };
    visitJobs_(check, &jobs);
    if (!jobs.empty()) {
        Violation("at rest there is a thread of job " + std::to_string(*jobs.begin()) + ", which is not in the table");
    }
}

// The timer of the heartbeat stays, and its task goes on, also without the timer or the subscription. A restart of the
// log makes no other timer.
void Checker::CheckHeartbeat(const Process& process) const {
    const auto part = parts_.find(heartbeat_);
    if (!IsThread(heartbeat_) || (part != parts_.end() && !part->second->HasEnded())) {
        Violation("at rest the task of the heartbeat does not wait for messages");
    }
    if (process.timers.size() != (hasTimer_ ? 1 : 0)) {
        Violation("at rest there are " + std::to_string(process.timers.size()) + " timers");
    }
    for (const auto& [id, timer] : process.timers) {
        if (timer->param.period != 5 || timer->param.repeat != 1 || timer->deleted) {
            Violation("at rest there is a timer of " + std::to_string(timer->param.period) + " s");
        }
    }
}

void Checker::CheckRest(const Process& process, std::optional<int64_t> spareBlocks) {
    if (Compares(process)) {
        CompareTable();
        CompareJobs();
    }
    CheckTable();
    CheckJobs();
    CheckHeartbeat(process);
    if (spareBlocks && jobThreads_.empty()) {
        CheckBlocks(process, *spareBlocks);
    }
    ForEachThread([&process](const Thread& thread) {
        if (thread.process == &process && !thread.locks.empty()) {
            Violation("at rest " + thread.Label() + " holds a lock");
        }
    });
    if (process.accounted != 0 || process.answers != 0 || !process.owed.empty()) {
        Violation("at rest there are accounted blocks, answers that were not freed or replies that are owed");
    }
}

}  // namespace sim::model
