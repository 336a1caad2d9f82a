// What the engine client asks the simulated bus for, besides os_msg.h: above all it shows its items there.
#pragma once

#include <cstddef>
#include <cstdint>

#pragma GCC visibility push(default)

extern "C" {

/// The connection of the process of that name; empty when there is none.
void SimConnectionOf(const char* procName, char* out, size_t size);

/// Waits until all that the calling process has sent has arrived.
void SimAwaitPassedOn();

/// The calling process shows no items any more.
void SimHideItems();
void SimShowItem(const char* name, uint32_t timeout, const char* server);
}

#pragma GCC visibility pop
