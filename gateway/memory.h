// What the gateway does to stay small, as it is idle nearly always.
#pragma once

namespace ominspect::gateway {

// To be called before there are other threads.
void SpareMemory();

// Gives back what is not in use: freed memory, and pages of code and constants, which come again from the file when
// they are needed. Any thread, now and then.
void GiveBackMemory();

}  // namespace ominspect::gateway
