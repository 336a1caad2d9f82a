// The first entry goes through ucontext(3), the others through setjmp(3), which makes no system call.
#include "world/fiber.h"

#include <cxxabi.h>
#include <sys/mman.h>
#include <ucontext.h>

#include <cstdlib>
#include <cstring>
#include <vector>

namespace sim {

namespace {

constexpr size_t kStackSize = size_t{256} * 1024;
constexpr size_t kGuardSize = 4096;

std::jmp_buf g_scheduler;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)
Fiber* g_entered = nullptr;

// Stacks of fibers that have ended.
std::vector<void*>& Spare() {
    static auto& spare = *new std::vector<void*>;
    return spare;
}

void* TakeStack() {
    if (!Spare().empty()) {
        void* const stack = Spare().back();
        Spare().pop_back();
        return stack;
    }
    void* const stack = mmap(nullptr, kStackSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (stack == MAP_FAILED || mprotect(stack, kGuardSize, PROT_NONE) != 0) {
        std::abort();
    }
    return stack;
}

}  // namespace

Fiber::~Fiber() {
    if (stack_ != nullptr) {
        Spare().push_back(stack_);
    }
}

void Fiber::Prepare(Body body, void* argument) {
    stack_ = TakeStack();
    body_ = body;
    argument_ = argument;
}

void Fiber::Trampoline() {
    Fiber& me = *g_entered;
    me.body_(me.argument_);
    std::abort();
}

void Fiber::Enter() {
    g_entered = this;
    std::memcpy(abi::__cxa_get_globals(), &exceptions_, sizeof exceptions_);
    if (_setjmp(g_scheduler) != 0) {
        return;
    }
    if (started_) {
        _longjmp(place_, 1);
    }
    started_ = true;
    ucontext_t context;
    getcontext(&context);
    context.uc_stack.ss_sp = static_cast<char*>(stack_) + kGuardSize;
    context.uc_stack.ss_size = kStackSize - kGuardSize;
    context.uc_link = nullptr;
    makecontext(&context, Trampoline, 0);
    setcontext(&context);
    std::abort();
}

void Fiber::Leave() {
    std::memcpy(&exceptions_, abi::__cxa_get_globals(), sizeof exceptions_);
    if (_setjmp(place_) == 0) {
        _longjmp(g_scheduler, 1);
    }
}

}  // namespace sim
