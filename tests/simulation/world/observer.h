// Sees what the threads of one process do at the platform, one action after the other.
//
// Each function is called at the very end of the platform call, when nothing comes between it and what the thread does
// next; where it says so, at the beginning.
#pragma once

#include <cstdint>
#include <string>

#include "kivo/os_msg.h"
#include "world/process.h"

namespace sim {

class Observer {
public:
    virtual ~Observer() = default;

    virtual void OnLog(Thread& thread, uint32_t level, const char* unit, uint32_t module, const std::string& text) = 0;
    virtual void OnLock(Thread& thread, const void* mutex) = 0;
    virtual void OnUnlock(Thread& thread, const void* mutex) = 0;  // at the beginning
    enum class Hold { kRead, kWrite, kRelease };
    virtual void OnHold(Thread& thread, Hold hold) = 0;  // of a reader-writer lock
    virtual void OnTime(Thread& thread, uint64_t time) = 0;
    virtual void OnEvent(Thread& thread, uint32_t id, BytesView data, uint32_t result) = 0;
    virtual void OnSend(Thread& thread, const TagMsgBlock& message, BytesView data, uint32_t result) = 0;
    virtual void OnAsk(Thread& thread, const TagMsgBlock& message, BytesView data,
                       uint32_t timeout) = 0;                                     // likewise
    virtual void OnAnswer(Thread& thread, uint32_t result, BytesView reply) = 0;  // to what it asked
    virtual void OnReply(Thread& thread, BytesView data, uint32_t result) = 0;
    virtual void OnSleep(Thread& thread, uint32_t seconds) = 0;
    virtual void OnCreate(Thread& thread, Thread* created, const void* argument, uint32_t result) = 0;
    virtual void OnTimer(Thread& thread, uint32_t period, uint32_t result) = 0;
    virtual void OnSubscribe(Thread& thread, uint32_t event, uint32_t result) = 0;           // for the first one
    virtual void OnHandler(Thread& thread, const TagMsgBlock& message, BytesView data) = 0;  // it begins
    virtual void OnHandled(Thread& thread, uint32_t result) = 0;
    virtual void OnThreadEnd(Thread& thread) = 0;
    virtual void OnEnd(Process& process) = 0;
};

/// The observer of the calling thread's process, if it has one.
Observer* TheObserver();

void TellThreadEnd(Thread& thread);

}  // namespace sim
