// The items that owners show on the simulated bus.
#pragma once

#include <cstddef>
#include <cstdint>

#pragma GCC visibility push(default)

extern "C" {

/// The connection of the process of that name; empty when there is none.
void SimConnectionOf(const char* procName, char* out, size_t size);

/// The calling process shows no items any more.
void SimHideItems();
void SimShowItem(const char* name, uint32_t timeout, const char* server);
}

#pragma GCC visibility pop
