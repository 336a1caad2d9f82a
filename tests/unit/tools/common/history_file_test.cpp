// Rows of the history as JSON.
#include "common/history_file.h"

#include <gtest/gtest.h>

using namespace ominspect::history;

namespace {

TEST(HistoryRowTest, OfAResultHasAllThatIsKnown) {
    Row row;
    row.seq = 1763800000123;
    row.time = TimeOfMs(1763800000123);
    row.item = "ok";
    row.status = "success";
    row.begin = TimeOfMs(1763799999000);
    row.duration = std::chrono::milliseconds(1123);
    row.cause = "timer";
    EXPECT_EQ(
        JsonOf(row).Print(),
        R"({"seq":1763800000123,"time":"2025-11-22T08:26:40.123Z","kind":"result","item":"ok","status":"success",)"
        R"("text":"","begin":"2025-11-22T08:26:39.000Z","durationMs":1123,"cause":"timer"})");
}

TEST(HistoryRowTest, LeavesOutWhatItLacks) {
    Row row;
    row.kind = Kind::kServer;
    row.status = "away";
    EXPECT_EQ(JsonOf(row).Print(), R"({"time":"1970-01-01T00:00:00.000Z","kind":"server","status":"away"})");
    row.duration = std::chrono::milliseconds(-1);
    EXPECT_EQ(JsonOf(row, "begin").Print(),
              R"({"time":"1970-01-01T00:00:00.000Z","kind":"begin","status":"away","durationMs":0})");
}

}  // namespace
