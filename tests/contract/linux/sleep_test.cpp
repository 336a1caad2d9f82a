// Sleeping while signals arrive.
#include <sys/time.h>

#include <atomic>
#include <csignal>

#include <gtest/gtest.h>

#include "kivo/os_thread.h"
#include "kivo/os_time.h"

namespace {

std::atomic<int> g_signals{0};

void Count(int /*signal*/) {
    ++g_signals;
}

}  // namespace

TEST(OsSleep, SignalsDoNotShortenIt) {
    struct sigaction action {};
    struct sigaction former {};
    action.sa_handler = Count;  // without SA_RESTART
    ASSERT_EQ(sigaction(SIGALRM, &action, &former), 0);
    const itimerval often{{0, 100000}, {0, 100000}};
    ASSERT_EQ(setitimer(ITIMER_REAL, &often, nullptr), 0);

    const uint64_t before = OsGetSystemTime();
    EXPECT_EQ(OsSleep(1), 0U);
    const uint64_t after = OsGetSystemTime();

    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &former, nullptr);
    EXPECT_GT(g_signals, 0);
    EXPECT_GE(after, before + 900);  // the system clock may be corrected meanwhile
}
