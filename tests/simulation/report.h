// Adds up what runs leave behind, and prints it.
#pragma once

#include <array>
#include <cstdint>

#include "world/outcome.h"

namespace sim {

class Report {
public:
    void Add(const Outcome& outcome);
    void Print(double seconds) const;

private:
    uint64_t runs_{};
    uint64_t steps_{};
    uint64_t checks_{};
    uint64_t starts_{};
    uint64_t requests_{};
    uint64_t allFaults_{};
    double years_{};
    double busyYears_{};
    std::array<uint64_t, static_cast<size_t>(Fault::kCount)> faults_{};
    std::array<uint64_t, kMaxStates> states_{};  // in how many runs
};

}  // namespace sim
