// A sleep is over after its time, or with a stop.
#include <gtest/gtest.h>

#include <chrono>
#include <stop_token>
#include <thread>

#include "common/pause.h"

using namespace ominspect;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

TEST(PauseTest, LastsForItsTime) {
    const std::stop_source stop;
    const auto begin = Clock::now();
    EXPECT_TRUE(Pause(20ms, stop.get_token()));
    EXPECT_GE(Clock::now() - begin, 20ms);
    EXPECT_TRUE(Pause(1ms, {})) << "nobody can stop it";
}

TEST(PauseTest, EndsWithAStop) {
    std::stop_source stop;
    bool slept = true;
    std::thread sleeper([&] { slept = Pause(24h, stop.get_token()); });
    EXPECT_TRUE(stop.request_stop());
    sleeper.join();
    EXPECT_FALSE(slept);
    EXPECT_FALSE(Pause(24h, stop.get_token())) << "it was stopped before";
}

}  // namespace
