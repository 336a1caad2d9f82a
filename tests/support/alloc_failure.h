// Makes one memory allocation fail.
#pragma once

#include <cstddef>

namespace support {

/// While it lives, the next allocation of the given kind and of exactly `size` bytes on this thread fails; the ones
/// after it succeed again. At most one at a time per thread.
class AllocFailure {
public:
    enum class Kind {
        kNothrow,  // operator new or new[] with std::nothrow: gives null
        kThrowing  // operator new or new[]: throws std::bad_alloc
    };

    AllocFailure(Kind kind, std::size_t size);
    ~AllocFailure();
    AllocFailure(const AllocFailure&) = delete;
    AllocFailure& operator=(const AllocFailure&) = delete;

    /// Whether an allocation has failed for it.
    bool Happened() const;
};

}  // namespace support
