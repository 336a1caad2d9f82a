// So many messages in a second, and a second's worth at once.
#include "mqtt/rate.h"

#include <gtest/gtest.h>

using namespace ominspect::gateway::mqtt;
using namespace std::chrono_literals;

namespace {

int Taken(Rate& rate, Rate::Clock::time_point now) {
    int taken = 0;
    while (rate.Take(now)) {
        ++taken;
    }
    return taken;
}

TEST(MqttRate, HoldsInEverySecond) {
    const Rate::Clock::time_point start(1h);
    Rate rate(10, start);
    EXPECT_EQ(Taken(rate, start), 10);
    EXPECT_EQ(rate.Due(), start + 100ms);
    EXPECT_EQ(Taken(rate, start + 99ms), 0);
    EXPECT_EQ(Taken(rate, start + 100ms), 1);
    int taken = 0;
    for (auto now = start + 200ms; now < start + 10200ms; now += 1ms) {
        taken += Taken(rate, now);
    }
    EXPECT_EQ(taken, 100);
}

TEST(MqttRate, AfterAPauseASecondsWorthGoesAtOnce) {
    const Rate::Clock::time_point start(1h);
    Rate rate(10, start);
    EXPECT_EQ(Taken(rate, start + 1h), 10);
    EXPECT_EQ(Taken(rate, start + 1h + 50ms), 0);
    EXPECT_EQ(Taken(rate, start + 1h + 100ms), 1);
}

}  // namespace
