// Makes the n-th allocation of the code under test fail, for tests that let each one of a road fail in turn.
#pragma once

namespace support {

/// While it lives, the allocation with this number, from 0, fails: of operator new in any form, on any thread, counted
/// over all of them. One at a time.
class NthAllocation {
public:
    explicit NthAllocation(unsigned number);
    ~NthAllocation();
    NthAllocation(const NthAllocation&) = delete;
    NthAllocation& operator=(const NthAllocation&) = delete;

    /// Whether there were as many, and one has failed.
    bool Happened() const;
};

/// While it lives, allocations of this thread are not counted: the test's own.
class Uncounted {
public:
    Uncounted();
    ~Uncounted();
    Uncounted(const Uncounted&) = delete;
    Uncounted& operator=(const Uncounted&) = delete;
};

/// From now on allocations made by the library that `function` is in are not counted, nor what others do for it, but
/// for what it calls in the program.
void LeaveOut(const void* function);

}  // namespace support
