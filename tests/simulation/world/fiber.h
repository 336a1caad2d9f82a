// A flow of control with a stack of its own. All of them share one thread of the operating system.
#pragma once

#include <csetjmp>
#include <cstddef>

namespace sim {

// Where a flow of control goes on.
#ifdef __x86_64__
using Place = void*;  // the stack, with the registers on top that a function must keep
#else
using Place = std::jmp_buf;
#endif

class Fiber {
public:
    using Body = void (*)(void*);

    Fiber() = default;
    ~Fiber();
    Fiber(const Fiber&) = delete;
    Fiber& operator=(const Fiber&) = delete;

    /// Makes it ready to run `body`, which must not return.
    void Prepare(Body body, void* argument);

    /// From the scheduler: runs it until it leaves.
    void Enter();

    /// From within: goes back to the scheduler, until it is entered again.
    void Leave();

private:
    // What the C++ library knows of the exceptions that are being handled, of one thread of the operating system.
    struct Exceptions {
        void* caught;
        unsigned uncaught;
    };

    static void Trampoline();

    void* stack_{};
    Body body_{};
    void* argument_{};
    bool started_{};
    Place place_{};
    Exceptions exceptions_{};
};

}  // namespace sim
