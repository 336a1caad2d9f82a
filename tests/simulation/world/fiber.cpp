// On other processors than the usual one, the first entry goes through ucontext(3), the others through setjmp(3), which
// makes no system call.
#include "world/fiber.h"

#include <cxxabi.h>
#include <sys/mman.h>
#include <ucontext.h>

#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

namespace sim {

namespace {

constexpr size_t kStackSize = size_t{256} * 1024;
constexpr size_t kGuardSize = 4096;

Place g_scheduler;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)
Fiber* g_entered = nullptr;
__cxxabiv1::__cxa_eh_globals* g_exceptions = nullptr;

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

#ifdef __x86_64__

// Does what setjmp(3) and longjmp(3) would, without their care for signals and cancellation.
[[gnu::naked, gnu::noinline]] void Switch(Place& /*from*/, Place /*to*/) {
    asm volatile(
        "push %rbp; push %rbx; push %r12; push %r13; push %r14; push %r15\n"
        "mov %rsp, (%rdi)\n"
        "mov %rsi, %rsp\n"
        "pop %r15; pop %r14; pop %r13; pop %r12; pop %rbx; pop %rbp\n"
        "ret");
}

// As if `begin` had been left right at its start.
Place Begin(void* stack, void (*begin)()) {
    constexpr size_t kRegisters = 6;
    auto* const top = reinterpret_cast<void**>(static_cast<char*>(stack) + kStackSize) - 2;
    *top = reinterpret_cast<void*>(begin);
    return top - kRegisters;
}

#else

void Switch(Place& from, Place& to) {
    if (_setjmp(from) == 0) {
        _longjmp(to, 1);
    }
}

[[noreturn]] void Begin(void* stack, void (*begin)()) {
    ucontext_t context;
    getcontext(&context);
    context.uc_stack.ss_sp = static_cast<char*>(stack) + kGuardSize;
    context.uc_stack.ss_size = kStackSize - kGuardSize;
    context.uc_link = nullptr;
    makecontext(&context, begin, 0);
    setcontext(&context);
    std::abort();
}

#endif

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
    if (g_exceptions == nullptr) {
        g_exceptions = abi::__cxa_get_globals();
    }
    std::memcpy(g_exceptions, &exceptions_, sizeof exceptions_);
    if (!std::exchange(started_, true)) {
#ifdef __x86_64__
        place_ = Begin(stack_, Trampoline);
#else
        if (_setjmp(g_scheduler) == 0) {
            Begin(stack_, Trampoline);
        }
        return;
#endif
    }
    Switch(g_scheduler, place_);
}

void Fiber::Leave() {
    std::memcpy(&exceptions_, g_exceptions, sizeof exceptions_);
    Switch(place_, g_scheduler);
}

}  // namespace sim
