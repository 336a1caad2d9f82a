// The program's own functions come before those of all libraries, so the libraries under test call these.
#include "linux/memory_shortage.h"

#include <dlfcn.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>

namespace {

std::atomic<int> g_reads{0};
std::atomic<int> g_allocations{0};
std::atomic<int> g_before{0};

// Takes one off, unless there is none left.
bool TakeOne(std::atomic<int>& count) {
    int left = count;
    while (left > 0 && !count.compare_exchange_weak(left, left - 1)) {
    }
    return left > 0;
}

bool AllocationFails() {
    return g_allocations > 0 && !TakeOne(g_before) && TakeOne(g_allocations);
}

}  // namespace

void support::FailReads(int count) {
    g_reads = count;
}

void support::FailAllocations(int count, int before) {
    g_before = before;
    g_allocations = count;
}

int support::FailuresToCome() {
    return g_reads + g_allocations;
}

extern "C" __attribute__((visibility("default"))) int sd_bus_process(sd_bus* bus, sd_bus_message** message) {
    static const auto real = reinterpret_cast<decltype(&sd_bus_process)>(dlsym(RTLD_NEXT, "sd_bus_process"));
    return TakeOne(g_reads) ? -ENOMEM : real(bus, message);
}

void* operator new(size_t size) {
    void* block = AllocationFails() ? nullptr : std::malloc(size);
    return block != nullptr ? block : throw std::bad_alloc();
}

// All forms whose memory the deletes below free, so that the address sanitizer sees them in pairs.
void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return AllocationFails() ? nullptr : std::malloc(size);
}

void operator delete(void* block) noexcept {
    std::free(block);
}

void operator delete(void* block, size_t /*size*/) noexcept {
    std::free(block);
}
