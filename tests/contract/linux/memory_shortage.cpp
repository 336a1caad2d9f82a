// The program's own functions come before those of all libraries, so the libraries under test call these.
#include "linux/memory_shortage.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>

#include "support/delete_operators.h"

namespace {

// Calls that fail after some that do not.
struct Failures {
    std::atomic<int> count{0};
    std::atomic<int> before{0};
};

std::atomic<int> g_reads{0};
std::atomic<bool> g_noEvents{false};
Failures g_allocations;
Failures g_threads;

// Takes one off, unless there is none left.
bool TakeOne(std::atomic<int>& count) {
    int left = count;
    while (left > 0 && !count.compare_exchange_weak(left, left - 1)) {
    }
    return left > 0;
}

bool Fails(Failures& failures) {
    return failures.count > 0 && !TakeOne(failures.before) && TakeOne(failures.count);
}

void Set(Failures& failures, int count, int before) {
    failures.before = before;
    failures.count = count;
}

}  // namespace

void support::FailReads(int count) {
    g_reads = count;
}

void support::FailAllocations(int count, int before) {
    Set(g_allocations, count, before);
}

void support::FailThreads(int count, int before) {
    Set(g_threads, count, before);
}

support::NoEvents::NoEvents() {
    g_noEvents = true;
}

support::NoEvents::~NoEvents() {
    g_noEvents = false;
}

int support::FailuresToCome() {
    return g_reads + g_allocations.count + g_threads.count;
}

extern "C" __attribute__((visibility("default"))) int sd_bus_process(sd_bus* bus, sd_bus_message** message) {
    static const auto real = reinterpret_cast<decltype(&sd_bus_process)>(dlsym(RTLD_NEXT, "sd_bus_process"));
    return TakeOne(g_reads) ? -ENOMEM : real(bus, message);
}

extern "C" __attribute__((visibility("default"))) int pthread_create(pthread_t* thread,
                                                                     const pthread_attr_t* attributes,
                                                                     void* (*entry)(void*), void* argument) {
    static const auto real = reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    return Fails(g_threads) ? EAGAIN : real(thread, attributes, entry, argument);
}

extern "C" __attribute__((visibility("default"))) int eventfd(unsigned int count, int flags) noexcept {
    static const auto real = reinterpret_cast<decltype(&eventfd)>(dlsym(RTLD_NEXT, "eventfd"));
    if (g_noEvents) {
        errno = EMFILE;
        return -1;
    }
    return real(count, flags);
}

void* operator new(size_t size) {
    void* block = Fails(g_allocations) ? nullptr : std::malloc(size);
    return block != nullptr ? block : throw std::bad_alloc();
}

void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return Fails(g_allocations) ? nullptr : std::malloc(size);
}

void* operator new[](size_t size) {
    return operator new(size);
}

void* operator new[](size_t size, const std::nothrow_t& tag) noexcept {
    return operator new(size, tag);
}
