// A call that waits for its reply.
#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <string>

#include "msg/handles.h"
#include "msg/reader.h"

namespace kivo::msg {

struct Process;

// One call to a process, or to the bus daemon. Used under the process's lock.
class AwaitedReply {
public:
    // `receiver` is the process that is asked; empty stands for the daemon.
    AwaitedReply(Process& process, std::string receiver);
    ~AwaitedReply();
    AwaitedReply(const AwaitedReply&) = delete;
    AwaitedReply& operator=(const AwaitedReply&) = delete;
    AwaitedReply(AwaitedReply&&) = delete;
    AwaitedReply& operator=(AwaitedReply&&) = delete;

    // Sends the call with so many bytes of payload, once; null stands for one that found no memory. Throws
    // std::bad_alloc.
    uint32_t Send(MessagePtr call, size_t payload = 0);

    // Waits for the reply, with the lock released meanwhile. OS_MSG_OK when there is one that is no error.
    uint32_t Wait(Reader::Lock& lock, Reader::Clock::time_point deadline);

    // What Wait waited for.
    [[nodiscard]] sd_bus_message* Reply() const { return reply_.get(); }

    // To be called for every message that comes in. Returns whether it claims to be a reply that is awaited; others
    // need not see it. What does not come from the process that was asked is ignored.
    static bool Take(Process& process, sd_bus_message* message);

private:
    [[nodiscard]] bool IsGenuine(sd_bus_message* message) const;

    Process& process_;
    const std::string receiver_;
    std::string owner_;  // the connection that had the receiver's name when it was asked; empty when none was known
    Waiter& waiter_;
    uint64_t cookie_ = 0;
    MessagePtr reply_;
};

}  // namespace kivo::msg
