// The signals that end a program: counted, and as a cancellation.
#include <gtest/gtest.h>

#include <csignal>

#include <poll.h>
#include <unistd.h>

#include "common/end_signals.h"
#include "support/eventually.h"

using namespace ominspect;

namespace {

bool IsReadable(int fd) {
    pollfd ready{fd, POLLIN, 0};
    return poll(&ready, 1, 0) == 1;
}

TEST(EndSignalsTest, AreCountedAndEndNothing) {
    EndSignals signals;
    EXPECT_EQ(signals.Count(), 0);
    EXPECT_FALSE(IsReadable(signals.Fd()));
    ASSERT_EQ(kill(getpid(), SIGINT), 0);
    EXPECT_TRUE(IsReadable(signals.Fd()));
    EXPECT_EQ(signals.Count(), 1);
    EXPECT_FALSE(IsReadable(signals.Fd()));
    EXPECT_EQ(signals.Count(), 1);
    ASSERT_EQ(kill(getpid(), SIGTERM), 0);
    ASSERT_EQ(kill(getpid(), SIGHUP), 0);
    EXPECT_EQ(signals.Count(), 3);
}

TEST(InterruptTest, CancelsWithTheFirstSignal) {
    const Interrupt interrupt(130);
    const std::stop_token token = interrupt.Token();
    EXPECT_FALSE(token.stop_requested());
    ASSERT_EQ(kill(getpid(), SIGTERM), 0);
    EXPECT_TRUE(support::Eventually([&] { return token.stop_requested(); }));
}

TEST(InterruptTest, CancelsWhenItIsTold) {
    const Interrupt interrupt(130);
    interrupt.Cancel();
    EXPECT_TRUE(interrupt.Token().stop_requested());
}

// A program of its own, which ends with the first signal after a cancellation.
[[noreturn]] void EndBySignal(const Interrupt& interrupt, bool alreadyCancelled) {
    if (!alreadyCancelled) {
        (void)kill(getpid(), SIGINT);
        (void)support::Eventually([&] { return interrupt.Token().stop_requested(); });
    }
    (void)kill(getpid(), SIGINT);
    (void)support::Eventually([] { return false; });
    _exit(0);
}

TEST(InterruptTest, EndsTheProgramWithTheSecondSignal) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(EndBySignal(Interrupt(77), false), testing::ExitedWithCode(77), "");
}

TEST(InterruptTest, EndsTheProgramWithTheFirstSignalWhenItWasCancelledBefore) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            const Interrupt interrupt(78);
            interrupt.Cancel();
            EndBySignal(interrupt, true);
        },
        testing::ExitedWithCode(78), "");
}

}  // namespace
