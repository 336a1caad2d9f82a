// Lets calls of the libraries under test find no memory, or no room for a thread.
#pragma once

namespace support {

/// So many of the next calls of sd_bus_process fail with ENOMEM.
void FailReads(int count);

/// So many of the next calls of operator new, on any thread, throw std::bad_alloc; those of `before` succeed first.
void FailAllocations(int count, int before = 0);

/// So many of the next threads, whoever asks for them, cannot be made; those of `before` are.
void FailThreads(int count, int before = 0);

/// How many of them are still to come.
int FailuresToCome();

}  // namespace support
