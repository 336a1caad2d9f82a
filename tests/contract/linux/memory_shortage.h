// Lets calls of the libraries under test find no memory, no room for a thread, or no descriptor.
#pragma once

namespace support {

/// So many of the next calls of sd_bus_process fail with ENOMEM.
void FailReads(int count);

/// So many of the next calls of operator new, on any thread, throw std::bad_alloc; those of `before` succeed first.
void FailAllocations(int count, int before = 0);

/// So many of the next threads, whoever asks for them, cannot be made; those of `before` are.
void FailThreads(int count, int before = 0);

/// While it lives, no thread gets an eventfd(2). The process keeps its other descriptors: sanitizers need some.
class NoEvents {
public:
    NoEvents();
    ~NoEvents();
    NoEvents(const NoEvents&) = delete;
    NoEvents& operator=(const NoEvents&) = delete;
    NoEvents(NoEvents&&) = delete;
    NoEvents& operator=(NoEvents&&) = delete;
};

/// How many of the counted failures are still to come.
int FailuresToCome();

}  // namespace support
