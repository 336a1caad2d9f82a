// A command's outcome as an inspection result.
#include "items/mapping.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <string>

using namespace ominspect::items;
using End = CommandOutcome::End;

namespace {

tagKivoOmInspectionResult Map(const CommandOutcome& outcome) {
    return MakeResult("item", "/opt/check", std::chrono::seconds(7), outcome);
}

tagKivoOmInspectionResult Exited(int status, const std::string& out, const std::string& err = "") {
    return Map({End::kExited, status, {out, err}});
}

TEST(ResultMapping, FollowsTheExitStatus) {
    EXPECT_STREQ(Exited(0, "x").status, "success");
    EXPECT_STREQ(Exited(1, "x").status, "warn");
    EXPECT_STREQ(Exited(2, "x").status, "fail");
    EXPECT_STREQ(Exited(3, "x").status, "unknown");
    EXPECT_STREQ(Exited(4, "x").status, "unknown");
    EXPECT_STREQ(Exited(127, "x").status, "unknown");
}

TEST(ResultMapping, NamesTheItem) {
    EXPECT_STREQ(Exited(0, "x").name, "item");
}

TEST(ResultMapping, TakesTheFirstLineWithoutPerformanceData) {
    EXPECT_STREQ(Exited(0, "DISK OK - free space: / 81 GB | /=15GB;1;2\nmore\n").text, "DISK OK - free space: / 81 GB");
    EXPECT_STREQ(Exited(0, "OK").text, "OK");
    EXPECT_STREQ(Exited(0, "OK\r\nmore").text, "OK");
}

TEST(ResultMapping, PassesOverEmptyLines) {
    EXPECT_STREQ(Exited(0, "\n  \t\n OK \n").text, "OK");
}

TEST(ResultMapping, PrefersStandardOutput) {
    EXPECT_STREQ(Exited(2, "CRITICAL\n", "a warning\n").text, "CRITICAL");
    EXPECT_STREQ(Exited(2, "\n", "cannot connect\n").text, "cannot connect");
}

TEST(ResultMapping, SaysThatThereWasNoOutput) {
    EXPECT_STREQ(Exited(2, "").text, "no output, exit status 2");
}

TEST(ResultMapping, CleansTheText) {
    EXPECT_STREQ(Exited(0, "a\tb\x1B[31m\xFF\xC3\xA4").text, "a b [31m?\xC3\xA4");
}

TEST(ResultMapping, CutsTheTextBetweenCharacters) {
    EXPECT_EQ(std::string(Exited(0, std::string(127, 'x')).text), std::string(127, 'x'));
    EXPECT_EQ(std::string(Exited(0, std::string(128, 'x')).text), std::string(127, 'x'));
    EXPECT_EQ(std::string(Exited(0, std::string(126, 'x') + "\xC3\xA4").text), std::string(126, 'x'));
}

TEST(ResultMapping, LeavesNothingOfAFormerText) {
    tagKivoOmInspectionResult result = Exited(0, "a longer text");
    SetResult(result, "warn", "short");
    EXPECT_STREQ(result.status, "warn");
    EXPECT_EQ(std::string(result.text, 13), std::string("short").append(8, '\0'));
}

TEST(ResultMapping, NamesTheSignal) {
    const auto result = Map({End::kSignalled, SIGSEGV, {"OK", ""}});
    EXPECT_STREQ(result.status, "unknown");
    EXPECT_STREQ(result.text, "ended by signal 11 (Segmentation fault)");
}

TEST(ResultMapping, SaysWhyACommandCouldNotBeStarted) {
    const auto result = Map({End::kNotStarted, ENOENT, {}});
    EXPECT_STREQ(result.status, "unknown");
    EXPECT_STREQ(result.text, "cannot run /opt/check: No such file or directory");
}

TEST(ResultMapping, FailsALateCommand) {
    const auto result = Map({End::kTimeLimit, 15, {"half a li", ""}});
    EXPECT_STREQ(result.status, "fail");
    EXPECT_STREQ(result.text, "time limit of 7 s passed");
}

TEST(ResultMapping, FailsACommandThatNeverGotAPlace) {
    const auto result = Map({End::kNeverStarted, 0, {}});
    EXPECT_STREQ(result.status, "fail");
    EXPECT_STREQ(result.text, "time limit of 7 s passed while waiting for a free place");
}

TEST(ResultMapping, FailsAStoppedCommand) {
    const auto result = Map({End::kStopped, 15, {"OK", ""}});
    EXPECT_STREQ(result.status, "fail");
    EXPECT_STREQ(result.text, "stopped");
}

}  // namespace
