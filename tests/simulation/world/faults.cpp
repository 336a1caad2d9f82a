// A counter for each kind runs down: most chances cost no choice.
#include "world/faults.h"

#include "world/choices.h"

namespace sim {

namespace {

struct Plan {
    uint32_t calls{};
    uint32_t left{};
};

Plan g_plans[static_cast<size_t>(Fault::kCount)];
uint32_t g_slowness = 0;

void Draw(Plan& plan) {
    plan.left = plan.calls == 0 ? 0 : 2 * plan.calls - Pick(2 * plan.calls);
}

}  // namespace

void SetFault(Fault fault, uint32_t calls) {
    Plan& plan = g_plans[static_cast<size_t>(fault)];
    plan.calls = calls;
    Draw(plan);
}

void StopFaults() {
    for (Plan& plan : g_plans) {
        plan = {};
    }
}

bool IsDue(Fault fault) {
    Plan& plan = g_plans[static_cast<size_t>(fault)];
    if (plan.left == 0 || --plan.left != 0) {
        return false;
    }
    Draw(plan);
    Count(fault);
    return true;
}

void SetBusSlowness(uint32_t slowness) {
    g_slowness = slowness;
}

Micros Delay() {
    constexpr Micros kUsual = 100;
    if (IsDue(Fault::kLateMessage)) {
        return (1 + Pick(3000)) * kMilli;
    }
    return g_slowness == 0 ? kUsual : kUsual + Pick(g_slowness) * (kUsual / 2);
}

}  // namespace sim
