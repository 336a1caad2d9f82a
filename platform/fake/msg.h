// What the parts of the fake message bus share: name rules, delivery to tasks, and the layer's own log lines.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "fake/fake.h"
#include "fake/process.h"
#include "fake/scheduler.h"
#include "kivo/os_msg.h"

namespace kivo::fake {

/// 1 to 15 bytes of UTF-8.
bool IsValidName(std::string_view name);

/// The text in a NUL-padded field; empty when it is no valid name.
std::string ReadName(const char* field, size_t size);

/// Puts a valid name into an empty field.
void WriteName(char (&field)[OS_MSG_NAME_SIZE], const std::string& name);

/// What is wrong with a message to be sent, OS_MSG_OK if nothing.
uint32_t CheckMessage(const TagMsgBlock& message);

/// What is wrong with a payload, OS_MSG_OK if nothing.
uint32_t CheckPayload(const void* data, uint32_t dataLen);

/// Puts a message into the task's queue; false when it is full. A lost asynchronous message is counted and logged.
bool Deliver(Lock& lock, Process& process, Task& task, Delivery delivery);

/// Runs the message loop of the task on the calling thread.
uint32_t RunLoop(Lock& lock, Process& process, const std::shared_ptr<Task>& task);

/// Gives `subscriber` the restart events it wants, now that `procName` is on the bus.
void DeliverRestart(Lock& lock, Process& subscriber, const std::string& procName);

/// Writes a line of the process's message layer.
void LogLine(Lock& lock, const Process& process, uint32_t level, const std::string& text);

}  // namespace kivo::fake
