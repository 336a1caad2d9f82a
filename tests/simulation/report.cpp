// States that no run has reached are named: that is where to look next.
#include "report.h"

#include <cstdio>

namespace sim {

namespace {

constexpr double kYear = 365.25 * 24 * 3600 * 1e6;

unsigned long long Big(uint64_t number) {
    return number;
}

}  // namespace

void Report::Add(const Outcome& outcome) {
    ++runs_;
    steps_ += outcome.steps;
    checks_ += outcome.checks;
    starts_ += outcome.starts;
    requests_ += outcome.requests;
    years_ += static_cast<double>(outcome.time) / kYear;
    busyYears_ += static_cast<double>(outcome.busy) / kYear;
    for (const uint64_t count : outcome.faults) {
        allFaults_ += count;
    }
    for (size_t i = 0; i < faults_.size(); ++i) {
        faults_[i] += outcome.faults[i];
    }
    for (size_t i = 0; i < states_.size(); ++i) {
        states_[i] += outcome.states[i] ? 1 : 0;
    }
}

void Report::Print(double seconds) const {
    std::printf("%llu lives, %.4f simulated years, %.1f s: %.1f lives per second\n", Big(runs_), years_, seconds,
                static_cast<double>(runs_) / seconds);
    std::printf("%llu turns, %llu messages to %llu servers, %llu steps compared with the model\n", Big(steps_),
                Big(requests_), Big(starts_), Big(checks_));
    std::printf(
        "of each simulated year: %.0f messages, %.0f starts, %.0f faults; runs under way in %.1f percent of it\n",
        static_cast<double>(requests_) / years_, static_cast<double>(starts_) / years_,
        static_cast<double>(allFaults_) / years_, 100 * busyYears_ / years_);
    std::printf("faults:\n");
    for (size_t i = 0; i < faults_.size(); ++i) {
        std::printf("  %-28s %llu\n", NameOf(static_cast<Fault>(i)), Big(faults_[i]));
    }
    size_t known = 0;
    size_t reached = 0;
    for (; StateName(known) != nullptr; ++known) {
        reached += states_[known] != 0 ? 1 : 0;
    }
    std::printf("states reached: %zu of %zu\n", reached, known);
    for (size_t i = 0; i < known; ++i) {
        if (states_[i] == 0) {
            std::printf("  never: %s\n", StateName(i));
        }
    }
}

}  // namespace sim
