// The generator is SplitMix64: the same numbers on every machine.
#include "world/choices.h"

#include "world/outcome.h"

namespace sim {

namespace {

Choices* g_choices = nullptr;

}  // namespace

uint32_t Choices::Below(uint32_t limit) {
    if (limit < 2) {
        return 0;
    }
    uint32_t value = 0;
    if (replay_) {
        value = made_ < schedule_.size() ? schedule_[made_] % limit : 0;
    } else {
        state_ += 0x9e3779b97f4a7c15;
        uint64_t mixed = state_;
        mixed = (mixed ^ (mixed >> 30U)) * 0xbf58476d1ce4e5b9;
        mixed = (mixed ^ (mixed >> 27U)) * 0x94d049bb133111eb;
        mixed ^= mixed >> 31U;
        value = static_cast<uint32_t>((mixed >> 32U) * limit >> 32U);
    }
    Outcome& outcome = TheOutcome();
    if (made_ < outcome.made.size()) {
        outcome.made[made_] = value;
        outcome.choices = made_ + 1;
    }
    ++made_;
    return value;
}

void UseChoices(Choices* choices) {
    g_choices = choices;
}

uint32_t Pick(uint32_t limit) {
    return g_choices->Below(limit);
}

bool OneIn(uint32_t n) {
    return Pick(n) == n - 1;
}

}  // namespace sim
