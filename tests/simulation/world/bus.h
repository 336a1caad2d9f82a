// The simulated bus. What one process sends to another arrives in order; between pairs there is none.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "world/process.h"

namespace sim {

void JoinBus(Process& process, const std::string& name);

/// Makes its message loops and waiting calls return.
void RequestLeave(Process& process);

/// Takes it off the bus: its queues are emptied, and senders that wait for it learn that it died.
void LeaveBus(Process& process);

/// The bus goes away: all processes lose it. It is there again at once, for those who join anew.
void LoseBus();

/// Waits for a reply. The reply stays in the request.
void Ask(const std::shared_ptr<Request>& request, Delivery delivery);

/// Decides the answer to a request, which then travels back.
void Answer(const std::shared_ptr<Request>& request, uint32_t result, Bytes reply);

void Send(Process& from, const std::string& to, Delivery delivery);
/// Waits until all messages have arrived that a process has sent until now, or until it has lost the bus.
void AwaitArrivals(Process& process);

void Broadcast(Process& from, const std::string& task, uint32_t id, const Bytes& data);

/// Runs the message loop of a task on the calling thread.
uint32_t RunLoop(Process& process, const std::shared_ptr<Task>& task);

}  // namespace sim
