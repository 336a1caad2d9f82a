// The items of a soak.
#pragma once

#include <cstddef>
#include <random>
#include <string>

namespace soak {

// Each owner has one item of each kind and two that answer at once.
//
//   ok    answers at once           slow  answers after some milliseconds
//   late  answers "running" and reports half a second to a second later
//   sync  answers at once; it is run synchronously only, and nothing else is
inline std::string ItemOf(size_t owner, const char* kind) {
    return "soak" + std::to_string(owner) + "_" + kind;
}

// The server knows groups by their items: those with this one, which the first owner has, and all others.
constexpr const char* kOtherGroup = "kivo_om_diag_log";

// Numbers that follow from a seed.
class Dice {
public:
    explicit Dice(uint64_t seed) : engine_(seed) {}
    size_t Below(size_t limit) { return std::uniform_int_distribution<size_t>(0, limit - 1)(engine_); }
    bool Percent(size_t chance) { return Below(100) < chance; }

private:
    std::mt19937_64 engine_;
};

}  // namespace soak
