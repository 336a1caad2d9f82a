// What a run leaves behind for the process that started it: a page that both see.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace sim {

/// The kinds of faults.
enum class Fault : uint8_t {
    kKillServer,
    kKillOwner,
    kKillClient,
    kBusGone,
    kTimeLimit,
    kQueueFull,
    kNoThread,
    kNoMemory,
    kSlowDisk,
    kClockSet,
    kOwnerLies,
    kOwnerBabbles,
    kSendFails,
    kTimerFails,
    kSubscriptionFails,
    kLogRestarts,
    kLateMessage,
    kCount,
};
const char* NameOf(Fault fault);

/// States that a run can reach, for the coverage.
constexpr size_t kMaxStates = 512;

struct Outcome {
    bool finished;
    bool violated;
    char text[4000];
    uint64_t sum;       // of the journal
    uint64_t time;      // simulated, in microseconds
    uint64_t busy;      // of that time, while event 9 said that a run was under way
    uint64_t steps;     // turns that were given
    uint64_t checks;    // steps of the server that were compared with the model
    uint64_t starts;    // of the server
    uint64_t requests;  // that the server handled
    std::array<uint64_t, static_cast<size_t>(Fault::kCount)> faults;
    std::array<bool, kMaxStates> states;
    uint32_t choices;  // how many were made, the first ones follow
    std::array<uint32_t, 1U << 20U> made;
};

Outcome& TheOutcome();
void UseOutcome(Outcome* outcome);

/// Writes down the time and the journal's sum.
void FinishOutcome();

/// Counts a fault that has happened.
void Count(Fault fault);

/// Notes that a state was reached; the number is the text's.
void Reached(const char* state);

/// The texts of the states by their numbers; of this process and those forked from it later.
const char* StateName(size_t number);

}  // namespace sim
