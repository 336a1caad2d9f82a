// What the parts of the fake message bus share: delivery to tasks, and the layer's own log lines.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "common/msg_rules.h"
#include "fake/fake.h"
#include "fake/process.h"
#include "fake/scheduler.h"
#include "kivo/os_msg.h"

namespace kivo::fake {

/// Puts a message into the task's queue; false when it is full. A lost asynchronous message is counted and logged.
bool Deliver(Lock& lock, Process& process, Task& task, Delivery delivery);

/// Runs the message loop of the task on the calling thread.
uint32_t RunLoop(Lock& lock, Process& process, const std::shared_ptr<Task>& task);

/// Gives `subscriber` the restart events it wants, now that `procName` is on the bus.
void DeliverRestart(Lock& lock, Process& subscriber, const std::string& procName);

/// Writes a line of the process's message layer.
void LogLine(Lock& lock, const Process& process, uint32_t level, const std::string& text);

}  // namespace kivo::fake
