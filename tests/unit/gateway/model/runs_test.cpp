// What is made of the server's events: begin, duration and cause.
#include "model/runs.h"

#include <gtest/gtest.h>

#include <thread>

using namespace ominspect;
using namespace ominspect::gateway;
using namespace std::chrono_literals;

namespace {

const TimePoint kTen{10s};
const Runs::Clock::time_point kTick{100s};

TEST(Runs, AResultHasTheBeginAndTheDurationOfItsRun) {
    Runs runs;
    const Event began = runs.Take({"disk", "running", "begin"}, kTen, kTick);
    EXPECT_EQ(began.kind, EventKind::kBegan);
    EXPECT_EQ(began.begin, kTen);
    (void)runs.Take({"other", "running", "begin"}, kTen + 1s, kTick + 1s);
    // The wall clock was set back meanwhile.
    const Event ended = runs.Take({"disk", "success", "fine"}, kTen - 5s, kTick + 2500ms);
    EXPECT_EQ(ended.kind, EventKind::kResult);
    EXPECT_EQ(ended.item, "disk");
    EXPECT_EQ(ended.status, "success");
    EXPECT_EQ(ended.text, "fine");
    EXPECT_EQ(ended.begin, kTen);
    EXPECT_EQ(ended.duration, 2500ms);
    EXPECT_EQ(ended.time, kTen - 5s);
    EXPECT_EQ(ended.cause, "");
    EXPECT_FALSE(runs.Take({"disk", "success", ""}, kTen, kTick).begin) << "the run is over";
}

TEST(Runs, ARunWhoseBeginningNobodySawHasNone) {
    Runs runs;
    EXPECT_FALSE(runs.Take({"disk", "success", ""}, kTen, kTick).begin);
    (void)runs.Take({"disk", "running", "begin"}, kTen, kTick);
    runs.Forget();
    const Event ended = runs.Take({"disk", "success", ""}, kTen, kTick);
    EXPECT_FALSE(ended.begin);
    EXPECT_FALSE(ended.duration);
}

TEST(Runs, ACauseIsThatOfWhoAskedForTheRun) {
    Runs runs;
    (void)runs.Take({"disk", "running", "begin"}, kTen, kTick);
    runs.Claim("disk", "page");
    EXPECT_EQ(runs.Take({"disk", "fail", ""}, kTen, kTick).cause, "") << "it had begun before";
    EXPECT_EQ(runs.Take({"disk", "running", "begin"}, kTen, kTick).cause, "page");
    runs.Release("disk", "page");
    EXPECT_EQ(runs.Take({"disk", "fail", ""}, kTen, kTick).cause, "page");
    EXPECT_EQ(runs.Take({"disk", "running", "begin"}, kTen, kTick).cause, "");
}

TEST(Runs, AClaimWhoseRunHasEndedIsNotTheNextOnes) {
    Runs runs;
    runs.Claim("disk", "page");
    runs.Claim("disk", "fleet");
    runs.Claim("disk", "fleet");
    for (const char* cause : {"page", "fleet", "fleet", ""}) {
        EXPECT_EQ(runs.Take({"disk", "running", "begin"}, kTen, kTick).cause, cause);
        EXPECT_EQ(runs.Take({"disk", "fail", ""}, kTen, kTick).cause, cause);
    }
}

TEST(Runs, TheEndOfAClaimedRunIsWaitedFor) {
    Runs runs;
    runs.Claim("disk", "page");
    std::thread events([&] {
        (void)runs.Take({"disk", "running", "begin"}, kTen, kTick);
        EXPECT_EQ(runs.Take({"disk", "fail", ""}, kTen, kTick).cause, "page");
    });
    runs.AwaitEnd("disk", "page", Runs::Clock::now() + 1min);
    runs.Release("disk", "page");
    events.join();
    runs.AwaitEnd("disk", "page", Runs::Clock::now() + 1min);  // nobody claims it
    runs.Claim("disk", "page");
    runs.AwaitEnd("disk", "page", Runs::Clock::now() + 1ms);  // nothing comes
}

}  // namespace
