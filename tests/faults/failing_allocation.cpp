// For LD_PRELOAD: lets one allocation of a program fail. The file that FAILING_ALLOCATION names has an int32_t, which
// is how many succeed before it; it becomes -1 by the failure. While it is negative, all succeed.
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "support/delete_operators.h"

namespace {

using Count = std::atomic<int32_t>;
static_assert(sizeof(Count) == sizeof(int32_t) && Count::is_always_lock_free);

Count g_none{-1};

// The first allocations come before the constructors of this library.
Count& Left() {
    static Count* const left = [] {
        const char* path = std::getenv("FAILING_ALLOCATION");
        const int fd = path != nullptr ? open(path, O_RDWR | O_CLOEXEC) : -1;
        void* place = fd < 0 ? MAP_FAILED : mmap(nullptr, sizeof(Count), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        if (fd >= 0) {
            (void)close(fd);
        }
        return place == MAP_FAILED ? &g_none : static_cast<Count*>(place);
    }();
    return *left;
}

bool Fails() {
    int32_t left = Left().load();
    while (left >= 0 && !Left().compare_exchange_weak(left, left - 1)) {
    }
    return left == 0;
}

void* Allocate(size_t size) {
    return Fails() ? nullptr : std::malloc(size == 0 ? 1 : size);
}

void* AllocateOrThrow(size_t size) {
    void* const block = Allocate(size);
    return block != nullptr ? block : throw std::bad_alloc();
}

}  // namespace

#pragma GCC visibility push(default)
void* operator new(size_t size) {
    return AllocateOrThrow(size);
}
void* operator new[](size_t size) {
    return AllocateOrThrow(size);
}
void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return Allocate(size);
}
void* operator new[](size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return Allocate(size);
}
#pragma GCC visibility pop
