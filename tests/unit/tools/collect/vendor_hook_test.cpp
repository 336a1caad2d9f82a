// A product's hook: what comes back from it, and how it is ended.
#include "collect/vendor_hook.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

using namespace ominspect;
using namespace ominspect::collect;

namespace {

int (*g_hook)() = nullptr;

std::optional<VendorReport> Call(int (*hook)(), std::chrono::seconds limit) {
    g_hook = hook;
    EndSignals signals;
    return CallVendorHook(signals, limit);
}

}  // namespace

// The program's own comes before that of the server's library.
extern "C" [[gnu::visibility("default")]] int InspectCollectVendorLog() {
    return g_hook();
}

namespace {

TEST(VendorHookTest, GivesItsResultAndWhatItPrinted) {
    const auto report = Call(
        [] {
            (void)std::fputs("said\n", stderr);
            return 7;
        },
        std::chrono::minutes(10));
    ASSERT_TRUE(report);
    EXPECT_EQ(report->result, 7);
    EXPECT_EQ(report->remark, "");
    EXPECT_EQ(report->messages.list, std::vector<std::string>{"said"});
    EXPECT_FALSE(report->IsGood());
}

TEST(VendorHookTest, IsEndedAtItsTimeLimit) {
    const auto report = Call(
        [] {
            for (;;) {
                (void)pause();
            }
            return 0;
        },
        std::chrono::seconds(0));
    ASSERT_TRUE(report);
    EXPECT_EQ(report->result, 0);
    EXPECT_EQ(report->remark, "the time limit of 0 s ended it");
    EXPECT_FALSE(report->IsGood());
}

// No descriptor is left for it.
TEST(VendorHookTest, ThatCannotBeStartedIsTold) {
    EndSignals signals;
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{0, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const auto report = CallVendorHook(signals, std::chrono::seconds(0));
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    ASSERT_TRUE(report);
    EXPECT_EQ(report->remark, "its process cannot be started: Too many open files");
    EXPECT_FALSE(report->IsGood());
}

TEST(VendorHookTest, SaysHowItDied) {
    const auto report = Call([] { return raise(SIGKILL); }, std::chrono::minutes(10));
    ASSERT_TRUE(report);
    EXPECT_EQ(report->remark, "its process was ended by Killed");
}

}  // namespace
