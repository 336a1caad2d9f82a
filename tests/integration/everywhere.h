// A road on which each allocation fails in turn.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <new>

#include "support/nth_allocation.h"

namespace support {

// Lets the first allocation fail, the second, and so on until the road needs no more; `next` must hold each time. How
// many there were.
inline unsigned Everywhere(const std::function<void()>& road, const std::function<bool()>& next) {
    constexpr unsigned kMostAllocations = 3000;
    for (unsigned number = 0; number < kMostAllocations; ++number) {
        bool happened = false;
        {
            const NthAllocation shortage(number);
            try {
                road();
            } catch (const std::bad_alloc&) {  // a C++ library may say so
            }
            happened = shortage.Happened();
        }
        if (!next()) {
            ADD_FAILURE() << "after allocation " << number;
            return number;
        }
        if (!happened) {
            return number;
        }
    }
    ADD_FAILURE() << "no end";
    return kMostAllocations;
}

}  // namespace support
