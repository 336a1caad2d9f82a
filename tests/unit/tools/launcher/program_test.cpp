// The server's launcher, with a stand-in for the server.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "programs.h"

using programs::Holds;
using programs::RunProgram;

namespace {

class LauncherProgram : public programs::WithoutBus {
protected:
    void SetUp() override {
        WithoutBus::SetUp();
        (void)unsetenv("FAKE_SERVER_RESULT");
    }
};

TEST_F(LauncherProgram, CallsTheServersMain) {
    const auto outcome = RunProgram({PROGRAM_LAUNCHER, "--library", FAKE_SERVER});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.out, "main called\n");
}

TEST_F(LauncherProgram, SaysWhyTheServerEnded) {
    (void)setenv("FAKE_SERVER_RESULT", "0x80020007", 1);
    const auto outcome = RunProgram({PROGRAM_LAUNCHER, "--library", FAKE_SERVER});
    EXPECT_EQ(outcome.code, 3);
    EXPECT_TRUE(Holds(outcome.err, "ominspect: the server ended: "));
    EXPECT_TRUE(Holds(outcome.err, "(0x80020007)"));
}

TEST_F(LauncherProgram, TakesAnUnaskedEndOfTheHostedServerForAFailure) {
    const auto outcome = RunProgram({PROGRAM_LAUNCHER, "--hosted", "--library", FAKE_SERVER});
    EXPECT_EQ(outcome.code, 3);
    EXPECT_EQ(outcome.out, "KivoInspectTaskMain called\n");
    EXPECT_TRUE(Holds(outcome.err, "ended by itself"));
}

// Standard error is a file here, which the environment calls the journal.
TEST_F(LauncherProgram, TellsTheJournalThatItStartsAndEnds) {
    const auto outcome =
        RunProgram({"/bin/sh", "-c", R"(JOURNAL_STREAM=$(stat -Lc %d:%i /proc/self/fd/2) exec "$0" --library "$1")",
                    PROGRAM_LAUNCHER, FAKE_SERVER});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.err, "<6>ominspect 0.1.0 starts\n<6>ominspect ended as asked\n");
}

TEST_F(LauncherProgram, EndsAServerThatDoesNotEndAfterTenRequestsASecondApart) {
    const char* options = std::getenv("ASAN_OPTIONS");
    const auto outcome =
        RunProgram({"/usr/bin/env", "LD_PRELOAD=" HASTY_ALARM, "FAKE_SERVER_STAYS=1",
                    std::string("ASAN_OPTIONS=verify_asan_link_order=0:") + (options != nullptr ? options : ""),
                    PROGRAM_LAUNCHER, "--library", FAKE_SERVER});
    EXPECT_EQ(outcome.code, 4);
    std::string alarms;
    for (int request = 0; request < 10; ++request) {
        alarms += "alarm in 1 s\n";
    }
    EXPECT_EQ(outcome.out, alarms);
    EXPECT_EQ(outcome.err, "ominspect: the server does not end; it is ended where it is\n");
}

TEST_F(LauncherProgram, NeedsTheLibrary) {
    const auto outcome = RunProgram({PROGRAM_LAUNCHER, "--library", "/nonexistent/lib.so"});
    EXPECT_EQ(outcome.code, 3);
    EXPECT_TRUE(Holds(outcome.err, "ominspect: cannot load the server: /nonexistent/lib.so"));
}

TEST_F(LauncherProgram, NeedsTheEntryFunction) {
    const auto process = RunProgram({PROGRAM_LAUNCHER, "--library", EMPTY_LIBRARY});
    EXPECT_EQ(process.code, 3);
    EXPECT_TRUE(Holds(process.err, "has no function main\n"));
    const auto hosted = RunProgram({PROGRAM_LAUNCHER, "--hosted", "--library", EMPTY_LIBRARY});
    EXPECT_EQ(hosted.code, 3);
    EXPECT_TRUE(Holds(hosted.err, "has no function KivoInspectTaskMain\n"));
}

TEST_F(LauncherProgram, AnswersWrongUseWithTwo) {
    const auto option = RunProgram({PROGRAM_LAUNCHER, "--fly"});
    EXPECT_EQ(option.code, 2);
    EXPECT_TRUE(option.err.ends_with("'--fly'\nTry 'ominspect --help'.\n")) << option.err;
    const auto argument = RunProgram({PROGRAM_LAUNCHER, "now"});
    EXPECT_EQ(argument.code, 2);
    EXPECT_EQ(argument.err, "ominspect: unexpected argument 'now'\nTry 'ominspect --help'.\n");
    EXPECT_EQ(RunProgram({PROGRAM_LAUNCHER, "--library"}).code, 2);
    const auto help = RunProgram({PROGRAM_LAUNCHER, "--help"});
    EXPECT_EQ(help.code, 0);
    EXPECT_TRUE(help.out.starts_with("Usage: ominspect ")) << help.out;
    EXPECT_EQ(RunProgram({PROGRAM_LAUNCHER, "--version"}).out, "ominspect 0.1.0\n");
}

}  // namespace
