// Compares a server, action by action, with the model: each of its threads with its script, its tables with the model's
// whenever one of their locks changes hands. Besides, what holds always: the order of locks, events that alternate.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "images/probe.h"
#include "model/part.h"
#include "model/state.h"
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
    void OnHandler(Thread& thread, const TagMsgBlock& message, BytesView data) override;
    void OnHandled(Thread& thread, uint32_t result) override;
    void OnThreadEnd(Thread& thread) override;
    void OnEnd(Process& process) override;

    /// The server ran out of memory, or is about to end: what it does is not known exactly any more.
    void StopComparing() { compares_ = false; }
    bool Compares() const { return compares_; }

    /// How many blocks of memory the server has beyond those for what it has to know.
    int64_t SpareBlocks(const Process& process) const;

    /// The world is at rest: nothing may be left but what the model knows of, and as many other blocks as at the start,
    /// if that is known.
    void CheckRest(const Process& process, std::optional<int64_t> spareBlocks) const;

    /// No message is handled or waits, and no job runs but wait timers that nobody can stop.
    bool IsAtRest(const Process& process) const;

    const State& Model() const { return state_; }

private:
    bool IsTable(const void* mutex) const { return mutex == tableLock_; }
    bool IsJobs(const void* mutex) const { return mutex == jobsLock_; }
    Part* PartOf(const Thread& thread) const;
    void Keep(Thread& thread, std::unique_ptr<Part> part);
    void Drop(Thread& thread);
    void Take(const Thread& thread, const Seen& seen);
    void SetBusy(bool busy);
    void CompareTable() const;
    void CompareJobs() const;

    decltype(SimVisitTable)* visitTable_;
    decltype(SimVisitJobs)* visitJobs_;
    const void* tableLock_;
    const void* jobsLock_;
    State state_;
    std::map<uint64_t, std::unique_ptr<Part>> parts_;  // by the thread's number
    bool compares_ = true;
    bool busy_ = false;  // what event 9 said last
    Micros busySince_ = 0;
};

}  // namespace sim::model
