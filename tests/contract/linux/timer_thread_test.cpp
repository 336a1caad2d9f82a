// The timer manager's thread: asleep while nothing is due, and deaf to signals.
#include <atomic>
#include <mutex>
#include <set>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "kivo/os_thread.h"
#include "kivo/os_timer.h"
#include "linux/memory_shortage.h"
#include "linux/thread_status.h"
#include "platform_control.h"

namespace {

std::string Status(const std::string& line) {
    return support::ThreadStatus("kivo_timer", line);
}

OsTimerId Create(uint32_t period) {
    OsTimerParam param{};
    param.mode = 1;
    param.period = period;
    param.repeat = 1;
    param.callback = [](uint64_t /*userData*/) -> uint32_t { return 0; };
    OsTimerId id = 0;
    EXPECT_EQ(OsTmrCreate(&param, &id), 0U);
    return id;
}

}  // namespace

TEST(OsTimerThread, SleepsWhileNothingIsDue) {
    ASSERT_EQ(OsTmrManagerInit(1, 0, 0), 0U);
    EXPECT_EQ(OsTmrDelete(Create(1)), 0U);
    const OsTimerId later = Create(3600);
    ASSERT_TRUE(support::WaitFor([] {  // until it has gone to sleep for the first time
        return Status("State").starts_with('S') && Status("voluntary_ctxt_switches") != "0";
    }));
    const std::string before = Status("voluntary_ctxt_switches");
    OsSleep(2);
    EXPECT_EQ(Status("voluntary_ctxt_switches"), before);
    EXPECT_EQ(OsTmrDelete(later), 0U);
}

TEST(OsTimerThread, ThreadsAreKeptForTheNextCallsAndNoMoreThanTwo) {
    static std::atomic<int> running;
    static std::atomic<bool> open;
    static std::mutex mutex;
    static std::set<pid_t> threads;  // guarded by `mutex`
    ASSERT_EQ(OsTmrManagerInit(1, 0, 0), 0U);
    OsTimerParam param{};
    param.mode = 1;
    param.period = 1;
    param.callback = [](uint64_t /*userData*/) -> uint32_t {
        {
            const std::lock_guard lock(mutex);
            threads.insert(gettid());
        }
        ++running;
        EXPECT_TRUE(support::WaitFor([] { return open.load(); }));
        --running;
        return 0;
    };
    const auto callAtOnce = [&param](int timers) {
        open = false;
        for (int i = 0; i < timers; ++i) {
            OsTimerId id = 0;
            ASSERT_EQ(OsTmrCreate(&param, &id), 0U);
        }
        EXPECT_TRUE(support::WaitFor([timers] { return running == timers; }));
        EXPECT_GE(support::ThreadCount("kivo_timer"), timers);
        open = true;
        EXPECT_TRUE(support::WaitFor([] { return running == 0 && support::ThreadCount("kivo_timer") <= 2; }));
    };
    constexpr std::size_t kTimers = 5;
    callAtOnce(kTimers);
    callAtOnce(2);
    EXPECT_EQ(threads.size(), kTimers) << "the second calls had other threads";
    const long before = support::AddressSpace();
    callAtOnce(kTimers);
    constexpr long kStack = 8192;  // KiB
    EXPECT_LT(support::AddressSpace(), before + kStack) << "the stacks of ended threads were not used again";
}

TEST(OsTimerThread, WithoutAnotherThreadTheCallsComeOneAfterTheOther) {
    static std::atomic<int> called;
    ASSERT_EQ(OsTmrManagerInit(1, 0, 0), 0U);
    OsTimerParam param{};
    param.mode = 1;
    param.period = 1;
    param.callback = [](uint64_t /*userData*/) -> uint32_t {
        ++called;
        return 0;
    };
    support::FailThreads(1000);
    constexpr int kTimers = 4;
    for (int i = 0; i < kTimers; ++i) {
        OsTimerId id = 0;
        ASSERT_EQ(OsTmrCreate(&param, &id), 0U);
    }
    EXPECT_TRUE(support::WaitFor([] { return called == kTimers; }));
    support::FailThreads(0);
}

TEST(OsTimerThread, BlocksAllSignals) {
    ASSERT_EQ(OsTmrManagerInit(1, 0, 0), 0U);
    // All but SIGKILL, SIGSTOP and the two that the C library keeps to itself; polled, as the thread may just begin.
    EXPECT_TRUE(support::WaitFor([] { return Status("SigBlk") == "fffffffe7ffbfeff"; })) << Status("SigBlk");
}
