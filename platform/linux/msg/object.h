// What the platform's other libraries do with the process's connection.
#pragma once

#include <systemd/sd-bus.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace kivo::msg {

#pragma GCC visibility push(default)

// Puts an object on the bus, until the process leaves it; does nothing when it is there. The functions of `table`,
// which gets no user data, are called under the lock of the message layer and must call nothing of os_msg.h.
uint32_t PublishObject(const char* path, const char* interface, const sd_bus_vtable* table);

// Calls `change` under that lock, then tells the bus that a property of the object has changed.
uint32_t ChangeProperty(const char* path, const char* interface, const char* property,
                        const std::function<void()>& change);

// Says, in a function of a `table`, how large the answer will be.
void NextAnswerHas(size_t bytes);

// The connection that owns a process name, as far as the changes have been read; empty when there is none.
std::string ConnectionOf(const std::string& procName);

// Waits until the daemon has passed on everything that this process has sent, so that what somebody sends afterwards
// comes later. A daemon that is silent for five seconds is not waited for.
void AwaitPassedOn();

#pragma GCC visibility pop

}  // namespace kivo::msg
