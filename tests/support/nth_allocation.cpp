// Replaces the program's plain operators new and delete, all of them.
#include "support/nth_allocation.h"

#include <dlfcn.h>
#include <execinfo.h>
#include <link.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

#include "support/delete_operators.h"

namespace {

constexpr long kNone = -1;

std::atomic<long> g_left{kNone};  // allocations that succeed before the one that fails
std::atomic<bool> g_happened{false};
thread_local int t_uncounted = 0;

struct Range {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;

    bool Holds(const void* address) const {
        const auto number = reinterpret_cast<std::uintptr_t>(address);
        return begin <= number && number < end;
    }
};

Range g_leftOut;
Range g_program;

// The range of the object that an address is in.
Range RangeOf(const void* address) {
    struct Search {
        std::uintptr_t address;
        Range found;
    } search{reinterpret_cast<std::uintptr_t>(address), {}};
    dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t /*size*/, void* data) {
            auto& wanted = *static_cast<Search*>(data);
            Range whole{UINTPTR_MAX, 0};
            for (int i = 0; i < info->dlpi_phnum; ++i) {
                const auto& segment = info->dlpi_phdr[i];
                if (segment.p_type == PT_LOAD) {
                    whole.begin = std::min<std::uintptr_t>(whole.begin, info->dlpi_addr + segment.p_vaddr);
                    whole.end =
                        std::max<std::uintptr_t>(whole.end, info->dlpi_addr + segment.p_vaddr + segment.p_memsz);
                }
            }
            if (whole.begin <= wanted.address && wanted.address < whole.end) {
                wanted.found = whole;
                return 1;
            }
            return 0;
        },
        &search);
    return search.found;
}

// Whoever called first of those that are the library or the program; the C++ library allocates for both.
bool IsLeftOut(const void* caller) {
    if (g_leftOut.end == 0) {
        return false;
    }
    std::array<void*, 48> frames{};
    const int count = backtrace(frames.data(), static_cast<int>(frames.size()));
    bool isCaller = false;
    for (int i = 0; i < count; ++i) {
        const void* const frame = frames.at(static_cast<std::size_t>(i));
        isCaller = isCaller || frame == caller;
        if (isCaller && (g_leftOut.Holds(frame) || g_program.Holds(frame))) {
            return g_leftOut.Holds(frame);
        }
    }
    return false;
}

bool MustFail(const void* caller) {
    if (t_uncounted != 0 || g_left == kNone) {
        return false;
    }
    ++t_uncounted;  // the look at the callers may allocate
    const bool isLeftOut = IsLeftOut(caller);
    --t_uncounted;
    if (isLeftOut || g_left == kNone || g_left.fetch_sub(1) != 0) {
        return false;
    }
    g_happened = true;
    return true;
}

void* Allocate(std::size_t size, const void* caller) {
    return MustFail(caller) ? nullptr : std::malloc(size == 0 ? 1 : size);
}

void* AllocateOrThrow(std::size_t size, const void* caller) {
    void* const block = Allocate(size, caller);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

}  // namespace

support::NthAllocation::NthAllocation(unsigned number) {
    g_happened = false;
    g_left = static_cast<long>(number);
}

support::NthAllocation::~NthAllocation() {
    g_left = kNone;
}

bool support::NthAllocation::Happened() const {  // NOLINT(readability-convert-member-functions-to-static)
    return g_happened;
}

support::Uncounted::Uncounted() {
    ++t_uncounted;
}

support::Uncounted::~Uncounted() {
    --t_uncounted;
}

void support::LeaveOut(const void* function) {
    const Uncounted own;
    std::array<void*, 4> frames{};
    (void)backtrace(frames.data(), static_cast<int>(frames.size()));  // it loads what it needs the first time
    g_leftOut = RangeOf(function);
    g_program = RangeOf(reinterpret_cast<const void*>(&support::LeaveOut));
}

void* operator new(std::size_t size) {
    return AllocateOrThrow(size, __builtin_return_address(0));
}
void* operator new[](std::size_t size) {
    return AllocateOrThrow(size, __builtin_return_address(0));
}
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return Allocate(size, __builtin_return_address(0));
}
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return Allocate(size, __builtin_return_address(0));
}
