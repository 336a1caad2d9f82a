// Compares a server, action by action, with the model: each of its threads with its script, its tables with the model's
// whenever one of their locks changes hands. Besides, what holds always, also after a failed allocation, when the model
// no longer knows what the server does: the order of locks, events that alternate, and that nothing is left at rest.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "images/probe.h"
#include "model/part.h"
#include "model/state.h"
#include "model/witness.h"
#include "world/image.h"
#include "world/observer.h"

namespace sim::model {

class Checker : public Observer {
public:
    /// Of a server that runs in this image.
    explicit Checker(const Image& image);

    void OnLog(Thread& thread, uint32_t level, const char* unit, uint32_t module, const std::string& text) override;
    void OnLock(Thread& thread, const void* mutex) override;
    void OnUnlock(Thread& thread, const void* mutex) override;
    void OnHold(Thread& thread, Hold hold) override;
    void OnTime(Thread& thread, uint64_t time) override;
    void OnEvent(Thread& thread, uint32_t id, BytesView data, uint32_t result) override;
    void OnSend(Thread& thread, const TagMsgBlock& message, BytesView data, uint32_t result) override;
    void OnAsk(Thread& thread, const TagMsgBlock& message, BytesView data, uint32_t timeout) override;
    void OnAnswer(Thread& thread, uint32_t result, BytesView reply) override;
    void OnReply(Thread& thread, BytesView data, uint32_t result) override;
    void OnSleep(Thread& thread, uint32_t seconds) override;
    void OnCreate(Thread& thread, Thread* created, const void* argument, uint32_t result) override;
    void OnTimer(Thread& thread, uint32_t period, uint32_t result) override;
    void OnSubscribe(Thread& thread, uint32_t event, uint32_t result) override;
    void OnHandler(Thread& thread, const TagMsgBlock& message, BytesView data) override;
    void OnHandled(Thread& thread, uint32_t result) override;
    void OnThreadEnd(Thread& thread) override;
    void OnEnd(Process& process) override;

    /// The server is about to end: its tables go.
    void BeginEnd() { ends_ = true; }

    /// The names in the server's own result table, past its lock.
    std::vector<std::string> Names() const;

    /// Whether a job of the server's own table was asked to stop, past its lock; nothing when there is no such job.
    std::optional<bool> IsStopping(uint32_t taskId) const;

    /// How many blocks of memory the server has beyond those for what it has to know.
    int64_t SpareBlocks(const Process& process);

    /// The world is at rest, and all items were taken back: nothing may be left but wait timers that nobody can stop,
    /// and as many other blocks as at the start, if that is known.
    void CheckRest(const Process& process, std::optional<int64_t> spareBlocks);

    /// No message is handled or waits, and no job runs but wait timers that nobody can stop.
    bool IsAtRest(const Process& process);

    const State& Model() const { return state_; }

private:
    bool IsTable(const void* mutex) const { return mutex == tableLock_; }
    bool IsJobs(const void* mutex) const { return mutex == jobsLock_; }
    Part* PartOf(const Thread& thread);
    void Keep(Thread& thread, std::unique_ptr<Part> part);
    void Drop(Thread& thread);
    void Take(const Thread& thread, const Seen& seen);
    void SetBusy(bool busy);
    bool Compares(const Process& process);
    void NoteCounts();
    bool HasOnlyTimers() const;
    void CompareTable() const;
    void CompareJobs() const;
    void CheckTable() const;
    void CheckJobs() const;
    void CheckHeartbeat(const Process& process) const;
    void CheckBlocks(const Process& process, int64_t spareBlocks);

    decltype(SimVisitTable)* visitTable_;
    decltype(SimVisitJobs)* visitJobs_;
    const void* tableLock_;
    const void* jobsLock_;
    State state_;
    Witness witness_;
    uint64_t heartbeat_ = 0;                           // its thread's number
    bool hasTimer_ = false;                            // the heartbeat has its timer
    bool refused_ = false;                             // a subscription was refused
    std::map<uint64_t, std::unique_ptr<Part>> parts_;  // by the thread's number

    // What is seen of the jobs' threads, without the model.
    struct JobThread {
        uint32_t job{};
        std::optional<Micros> waitsSince{};  // it is a wait timer
    };
    std::map<uint64_t, JobThread> jobThreads_;  // by the thread's number
    std::optional<uint64_t> handled_;           // the token of the message that is handled
    std::map<std::string, uint8_t> counts_;     // of the runs, when the model no longer knows them

    bool compares_ = true;  // false: an allocation of the server has failed
    bool ends_ = false;
    bool busy_ = false;  // what event 9 said last
    Micros busySince_ = 0;
};

}  // namespace sim::model
