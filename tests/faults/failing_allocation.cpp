// For LD_PRELOAD: lets allocations of a program fail. The file that FAILING_ALLOCATION names has two int32_t: how many
// succeed before the first that fails, and how many more fail after that one. The first becomes -1 by the last failure.
// While it is negative, all succeed. With FAILING_ALLOCATION_PROGRAM they fail in the program of this name alone, and
// not in those that it starts.
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "support/delete_operators.h"

namespace {

using Count = std::atomic<int32_t>;
static_assert(sizeof(Count) == sizeof(int32_t) && Count::is_always_lock_free);

struct Shortage {
    Count left;
    Count more;
};

Shortage g_none{-1, 0};

bool IsSpared() {
    const char* const program = std::getenv("FAILING_ALLOCATION_PROGRAM");
    return program != nullptr && std::strcmp(program, program_invocation_short_name) != 0;
}

// The first allocations come before the constructors of this library.
Shortage& TheShortage() {
    static Shortage* const shortage = [] {
        const char* path = std::getenv("FAILING_ALLOCATION");
        const int fd = path != nullptr && !IsSpared() ? open(path, O_RDWR | O_CLOEXEC) : -1;
        void* place = fd < 0 ? MAP_FAILED : mmap(nullptr, sizeof(Shortage), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        if (fd >= 0) {
            (void)close(fd);
        }
        return place == MAP_FAILED ? &g_none : static_cast<Shortage*>(place);
    }();
    return *shortage;
}

// Takes one off a number that is at least this; what it was.
int32_t Take(Count& count, int32_t least) {
    int32_t value = count.load();
    while (value >= least && !count.compare_exchange_weak(value, value - 1)) {
    }
    return value;
}

bool Fails() {
    Shortage& shortage = TheShortage();
    if (shortage.left.load() == 0 && Take(shortage.more, 1) > 0) {
        return true;
    }
    return Take(shortage.left, 0) == 0;
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
