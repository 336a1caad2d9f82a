// Makes one memory allocation fail: replaces the program's plain operators new and delete, all of them.
#include "support/alloc_failure.h"

#include <cstdlib>
#include <new>

#include "support/delete_operators.h"

namespace {

struct Plan {
    bool armed;
    bool happened;
    support::AllocFailure::Kind kind;
    std::size_t size;
};

thread_local Plan g_plan{};

bool MustFail(support::AllocFailure::Kind kind, std::size_t size) {
    if (!g_plan.armed || g_plan.kind != kind || g_plan.size != size) {
        return false;
    }
    g_plan.armed = false;
    g_plan.happened = true;
    return true;
}

void* Allocate(std::size_t size) {
    return std::malloc(size == 0 ? 1 : size);
}

void* AllocateNothrow(std::size_t size) {
    return MustFail(support::AllocFailure::Kind::kNothrow, size) ? nullptr : Allocate(size);
}

void* AllocateThrowing(std::size_t size) {
    void* block = MustFail(support::AllocFailure::Kind::kThrowing, size) ? nullptr : Allocate(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

}  // namespace

support::AllocFailure::AllocFailure(Kind kind, std::size_t size) {
    g_plan = {true, false, kind, size};
}

support::AllocFailure::~AllocFailure() {
    g_plan = {};
}

bool support::AllocFailure::Happened() const {  // NOLINT(readability-convert-member-functions-to-static)
    return g_plan.happened;
}

void* operator new(std::size_t size) {
    return AllocateThrowing(size);
}
void* operator new[](std::size_t size) {
    return AllocateThrowing(size);
}
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return AllocateNothrow(size);
}
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return AllocateNothrow(size);
}
