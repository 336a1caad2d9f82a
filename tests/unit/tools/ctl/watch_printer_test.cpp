// What watch prints, and when it is over.
#include "watch_printer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <barrier>
#include <string>
#include <thread>

using namespace ominspect::ctl;

namespace {

// One thread sees the session's events, another one the server.
TEST(WatchPrinterTest, PrintsNoMoreThanAskedForWhicheverThreadIsFirst) {
    WatchOptions options;
    options.count = 1;
    constexpr int kRounds = 2000;
    testing::internal::CaptureStdout();
    for (int round = 0; round < kRounds; ++round) {
        WatchPrinter printer(options);
        std::barrier begin(2);
        std::jthread session([&, events = printer.Events()] {
            begin.arrive_and_wait();
            events.onBusy(true);
        });
        begin.arrive_and_wait();
        printer.Server(true);
    }
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), kRounds);
}

}  // namespace
