// The programs of a soak beside the one that starts them. Each runs in a process of its own, until it is killed or
// done.
#pragma once

#include <cstddef>
#include <cstdint>

#include "board.h"

namespace soak {

// The exit codes.
constexpr int kWell = 0;
constexpr int kFailed = 1;

int RunOwner(size_t number);

// Takes requests from the board until there are none left.
int RunClient(Board& board, size_t place, size_t owners, bool groups, uint64_t seed);

}  // namespace soak
