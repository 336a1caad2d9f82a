// Threads without a script are the platform's and those of the start: they must not touch the tables.
#include "model/checker.h"

#include <algorithm>
#include <cstring>

#include "common/msg_rules.h"
#include "world/journal.h"
#include "world/outcome.h"

namespace sim::model {

using Kind = Action::Kind;

namespace {

// A place in the model's table while the server's is read.
struct Place {
    std::map<std::string, Entry>::const_iterator at;
    std::map<std::string, Entry>::const_iterator end;
};

std::string Show(const std::string& name, const Result& result, uint32_t count, uint32_t taskId, uint32_t timeout,
                 uint64_t start, uint64_t end) {
    return name + " (" + Shown({reinterpret_cast<const char*>(&result), sizeof result}) + ") count " +
           std::to_string(count) + " timer " + std::to_string(taskId) + " limit " + std::to_string(timeout) +
           " times " + std::to_string(start) + " " + std::to_string(end);
}

bool AreSame(const SimRequesters& has, const Requesters& known) {
    if (has.count != known.All().size()) {
        return false;
    }
    const std::string_view bytes(static_cast<const char*>(has.first), has.bytes);
    if (known.IsProven(bytes)) {
        return true;
    }
    bool provable = true;
    for (uint32_t i = 0; i < has.count; ++i) {
        const SimRequester requester = has.get(has.first, i);
        const Client& client = known.All()[i];
        if (client.proc != requester.proc || client.task != requester.task) {
            return false;
        }
        provable = provable && requester.isWithin;
    }
    if (provable) {
        known.Prove(bytes);
    }
    return true;
}

bool AreSame(const SimEntry& entry, const std::string& name, const Entry& known) {
    return name == entry.name && known.startCount == entry.startCount && known.taskId == entry.taskId &&
           known.timeout == entry.timeout && std::memcmp(&known.result, entry.result, sizeof known.result) == 0 &&
           known.startTime == entry.startTime && known.endTime == entry.endTime &&
           AreSame(entry.requesters, known.requesters);
}

void CompareEntry(void* context, const SimEntry& entry) {
    Place& place = *static_cast<Place*>(context);
    const auto has = [&entry] {
        return Show(entry.name, *entry.result, entry.startCount, entry.taskId, entry.timeout, entry.startTime,
                    entry.endTime) +
               " requesters " + std::to_string(entry.requesters.count);
    };
    if (place.at == place.end) {
        Violation("the result table has an entry that must not be there: " + has());
    }
    const auto& [name, known] = *place.at++;
    if (!AreSame(entry, name, known)) {
        Violation(
            "the result table has: " + has() + "; it must have: " +
            Show(name, known.result, known.startCount, known.taskId, known.timeout, known.startTime, known.endTime) +
            " requesters " + std::to_string(known.requesters.All().size()));
    }
}

struct JobPlace {
    std::map<uint32_t, Job>::const_iterator at;
    std::map<uint32_t, Job>::const_iterator end;
};

void CompareJob(void* context, const SimJob& job) {
    JobPlace& place = *static_cast<JobPlace*>(context);
    if (place.at == place.end || place.at->first != job.taskId || place.at->second.stopFlag != job.stopFlag ||
        place.at->second.forceOnly != job.forceOnly) {
        Violation("the job table has job " + std::to_string(job.taskId) + (job.stopFlag ? ", to be stopped" : "") +
                  (job.forceOnly ? ", by force only" : "") + ", that must not be there so");
    }
    ++place.at;
}

constexpr const char* kHeartbeat = "heartbeat";

std::string Receiver(const TagMsgBlock& message) {
    return std::string(message.dstProcName) + ":" + message.dstTaskName;
}

}  // namespace

Checker::Checker(const Image& image)
    : visitTable_(image.Find<decltype(SimVisitTable)>("SimVisitTable")),
      visitJobs_(image.Find<decltype(SimVisitJobs)>("SimVisitJobs")),
      tableLock_(image.Find<decltype(SimTableLock)>("SimTableLock")()),
      jobsLock_(image.Find<decltype(SimJobsLock)>("SimJobsLock")()) {
    for (const char* const name : {"unknown_group", "kivo_group_trace"}) {
        state_.table[name].result = MakeResult(name, "success", "init");
    }
}

// After a failed allocation the server gives up what it was doing, in the middle.
bool Checker::Compares(const Process& process) {
    if (compares_ && process.ranOutOfMemory) {
        compares_ = false;
        TheLedger().RunOutOfMemory();
        for (const auto& [name, entry] : state_.table) {
            counts_[name] = entry.startCount;
        }
    }
    return compares_ && !ends_;
}

Part* Checker::PartOf(const Thread& thread) {
    return Compares(*thread.process) ? static_cast<Part*>(thread.script) : nullptr;
}

void Checker::Keep(Thread& thread, std::unique_ptr<Part> part) {
    thread.script = part.get();
    parts_[thread.number] = std::move(part);
}

void Checker::Drop(Thread& thread) {
    thread.script = nullptr;
    parts_.erase(thread.number);
}

void Checker::Take(const Thread& thread, const Seen& seen) {
    if (Part* const part = PartOf(thread)) {
        ++TheOutcome().checks;
        part->Take(seen);
    }
}

void Checker::OnLog(Thread& thread, uint32_t level, const char* unit, uint32_t module, const std::string& text) {
    witness_.OnLog(thread, text);
    const auto job = jobThreads_.find(thread.number);
    if (job != jobThreads_.end() && text.starts_with("start wait[")) {
        job->second.waitsSince = Now();
    }
    Take(thread, {.kind = Kind::kLog, .number = level, .module = module, .unit = unit, .text = text});
}

// The order of the locks: the table's, then the jobs'.
void Checker::OnLock(Thread& thread, const void* mutex) {
    const bool table = IsTable(mutex);
    const bool jobs = IsJobs(mutex);
    if (!table && !jobs) {
        return;
    }
    if (table ? thread.locks.size() != 1
              : thread.locks.size() > 2 || (thread.locks.size() == 2 && !IsTable(thread.locks[0]))) {
        Violation(std::string("takes the lock of the ") + (table ? "table" : "jobs") + " with another one held");
    }
    if (table) {
        witness_.OnTableLocked(thread);
    }
    if (!Compares(*thread.process)) {
        return;
    }
    if (PartOf(thread) == nullptr) {
        Violation("touches the tables, which is not its business");
    }
    if (table) {
        CompareTable();
    } else {
        CompareJobs();
    }
    Take(thread, {.kind = table ? Kind::kLockTable : Kind::kLockJobs});
}

void Checker::OnUnlock(Thread& thread, const void* mutex) {
    const bool table = IsTable(mutex);
    if (!table && !IsJobs(mutex)) {
        return;
    }
    if (!Compares(*thread.process)) {
        if (table && !ends_) {
            NoteCounts();
        }
        return;
    }
    Take(thread, {.kind = table ? Kind::kUnlockTable : Kind::kUnlockJobs});
    if (table) {
        CompareTable();
    } else {
        CompareJobs();
    }
}

void Checker::OnHold(Thread& thread, Hold hold) {
    if (hold != Hold::kRelease && thread.locks.size() != 1) {
        Violation("takes the registry's lock with another one held");
    }
    Take(thread, {.kind = hold == Hold::kRead    ? Kind::kHoldRead
                          : hold == Hold::kWrite ? Kind::kHoldWrite
                                                 : Kind::kRelease});
}

void Checker::OnTime(Thread& thread, uint64_t time) {
    Take(thread, {.kind = Kind::kTime, .time = time});
}

// The server must never tell twice in a row that it is busy, or that it is idle.
void Checker::OnEvent(Thread& thread, uint32_t id, BytesView data, uint32_t result) {
    if (id == 9) {
        uint32_t state = 2;
        if (data.size() == sizeof state) {
            std::memcpy(&state, data.data(), sizeof state);
        }
        const bool busy = state == 0;
        if (state > 1 || busy == busy_) {
            Violation(std::string("event 9 says ") + (busy ? "busy" : "idle") + " twice");
        }
        SetBusy(busy);
    }
    if (thread.locks.size() != 1 || !IsTable(thread.locks[0])) {
        Violation("broadcasts without the table's lock, or with more");
    }
    Witness::OnEvent(id, data);
    Take(thread, {.kind = Kind::kEvent, .number = id, .data = data, .result = result});
}

void Checker::OnSend(Thread& thread, const TagMsgBlock& message, BytesView data, uint32_t result) {
    // The engine client holds a lock of its own when it registers.
    if (std::ranges::any_of(thread.locks, [this](const void* lock) { return IsTable(lock) || IsJobs(lock); })) {
        Violation("sends a message with the lock of a table held");
    }
    const std::string receiver = Receiver(message);
    Take(thread, {.kind = Kind::kSend, .number = message.msgId, .text = receiver, .data = data, .result = result});
}

void Checker::OnAsk(Thread& thread, const TagMsgBlock& message, BytesView data, uint32_t timeout) {
    witness_.OnAsk(thread, data);
    const std::string receiver = Receiver(message);
    Take(thread, {.kind = Kind::kAsk, .number = message.msgId, .module = timeout, .text = receiver, .data = data});
}

void Checker::OnAnswer(Thread& thread, uint32_t result, BytesView reply) {
    witness_.OnAnswer(thread, result, reply);
    Take(thread, {.kind = Kind::kAnswer, .result = result, .reply = reply});
}

void Checker::OnReply(Thread& thread, BytesView data, uint32_t result) {
    Take(thread, {.kind = Kind::kReply, .data = data, .result = result});
}

void Checker::OnSleep(Thread& thread, uint32_t seconds) {
    Take(thread, {.kind = Kind::kSleep, .number = seconds});
}

void Checker::OnCreate(Thread& thread, Thread* created, const void* argument, uint32_t result) {
    const auto id = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(argument));
    if (created != nullptr && id != 0) {
        jobThreads_[created->number].job = id;
    }
    if (created == nullptr) {
        witness_.OnNoThread(thread);
    }
    if (PartOf(thread) == nullptr) {
        return;
    }
    Take(thread, {.kind = Kind::kCreate, .number = id, .result = result});
    if (created != nullptr && Compares(*thread.process)) {
        auto part = std::make_unique<Part>(state_);
        part->BeginJob(id);
        Keep(*created, std::move(part));
    }
}

// The heartbeat is the only one that has a timer.
void Checker::OnTimer(Thread& thread, uint32_t period, uint32_t result) {
    if (thread.name != kHeartbeat) {
        Violation("creates a timer, which is not its business");
    }
    hasTimer_ = result == 0;
    heartbeat_ = thread.number;
    if (Compares(*thread.process) && PartOf(thread) == nullptr) {
        auto part = std::make_unique<Part>(state_);
        part->BeginHeartbeat();
        Keep(thread, std::move(part));
    }
    Take(thread, {.kind = Kind::kTimer, .number = period, .result = result});
}

void Checker::OnSubscribe(Thread& thread, uint32_t event, uint32_t result) {
    refused_ = refused_ || result != OS_MSG_OK;
    Take(thread, {.kind = Kind::kSubscribe, .number = event, .result = result});
}

void Checker::OnHandler(Thread& thread, const TagMsgBlock& message, BytesView data) {
    if (thread.task == kHeartbeat) {
        if (const Part* const part = PartOf(thread); part != nullptr && !part->HasEnded()) {
            Violation("handles the news of a restart before it has done with what came before");
        }
        if (Compares(*thread.process)) {
            auto part = std::make_unique<Part>(state_);
            part->BeginRestart(message);
            Keep(thread, std::move(part));
        }
        return;
    }
    if (thread.task != "iom_srv_task") {
        return;
    }
    witness_.OnHandler(thread, message, data);
    ++TheOutcome().requests;
    handled_ = kivo::TokenOf(message);
    if (Compares(*thread.process)) {
        auto part = std::make_unique<Part>(state_);
        part->BeginMessage(message, data);
        Keep(thread, std::move(part));
    }
}

void Checker::OnHandled(Thread& thread, uint32_t result) {
    if (thread.task != kHeartbeat && thread.task != "iom_srv_task") {
        return;
    }
    Take(thread, {.kind = Kind::kHandled, .number = result});
    if (thread.task == kHeartbeat) {
        return;
    }
    if (!thread.locks.empty()) {
        Violation("a handler returns with a lock held");
    }
    if (thread.process->owed.contains(*handled_)) {
        Violation("a handler returns without a reply");
    }
    handled_.reset();
    Drop(thread);
}

void Checker::OnThreadEnd(Thread& thread) {
    // A task's thread ends when its process leaves the bus.
    if (thread.name != kHeartbeat) {
        Take(thread, {.kind = Kind::kEnd});
    } else if (thread.process->Attached()) {
        Violation("the heartbeat ends");
    }
    Drop(thread);
    witness_.OnThreadEnd(thread);
    jobThreads_.erase(thread.number);
}

void Checker::OnEnd(Process& process) {
    SetBusy(false);
    ForEachThread([this, &process](const Thread& thread) {
        if (thread.process != &process) {
            return;
        }
        if (std::ranges::find(thread.locks, tableLock_) != thread.locks.end()) {
            Reached("server: killed holding the table");
        }
        if (std::strcmp(thread.waitsFor, "a reply") == 0 && thread.state == Thread::State::kBlocked) {
            Reached("server: killed while an owner was asked");
        }
    });
}

void Checker::SetBusy(bool busy) {
    if (busy_) {
        TheOutcome().busy += Now() - busySince_;
    }
    busy_ = busy;
    busySince_ = Now();
}

void Checker::CompareTable() const {
    Place place{state_.table.begin(), state_.table.end()};
    const uint32_t running = visitTable_(CompareEntry, &place);
    if (place.at != place.end) {
        Violation("the result table lacks " + place.at->first);
    }
    if (running != state_.runningCount) {
        Violation("the running count is " + std::to_string(running) + ", it must be " +
                  std::to_string(state_.runningCount));
    }
}

void Checker::CompareJobs() const {
    JobPlace place{state_.jobs.begin(), state_.jobs.end()};
    visitJobs_(CompareJob, &place);
    if (place.at != place.end) {
        Violation("the job table lacks job " + std::to_string(place.at->first));
    }
}

// Without the model: the count of an item's runs goes from 255 to 0.
void Checker::NoteCounts() {
    const auto note = [](void* context, const SimEntry& entry) {
        auto& checker = *static_cast<Checker*>(context);
        uint8_t& count = checker.counts_[entry.name];
        checker.state_.wrapped = checker.state_.wrapped || (count == 255 && entry.startCount == 0);
        count = entry.startCount;
    };
    (void)visitTable_(note, this);
}

}  // namespace sim::model
