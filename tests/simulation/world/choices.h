// Every decision of a run, in order: made by a seed, or taken from a schedule that was written down.
//
// The value 0 is always the tamest one: no fault, no delay, the thread that has waited longest. So a schedule gets
// simpler when values become 0, and a schedule that ends early goes on tamely.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

namespace sim {

class Choices {
public:
    explicit Choices(uint64_t seed) : state_(seed) {}
    explicit Choices(std::vector<uint32_t> schedule) : schedule_(std::move(schedule)), replay_(true) {}

    /// A number below `limit`, which is at least 1.
    uint32_t Below(uint32_t limit);

private:
    uint64_t state_{};
    std::vector<uint32_t> schedule_;
    bool replay_{};
    uint32_t made_{};
};

/// Those of the run in this process. They are written down in its outcome.
void UseChoices(Choices* choices);

/// A number below `limit`.
uint32_t Pick(uint32_t limit);

/// True once in `n` times.
bool OneIn(uint32_t n);

/// One of the values given; the first is the tamest.
template <typename T, typename... Ts>
T PickOf(T first, Ts... others) {
    const T all[] = {first, static_cast<T>(others)...};
    return all[Pick(1 + sizeof...(others))];
}

}  // namespace sim
