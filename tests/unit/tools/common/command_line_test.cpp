// The command line that both programs of ominspectctl share: what it answers by itself, and the exit codes.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "common/command_line.h"

using namespace ominspect;

namespace {

// The exit code and what was printed, for a program with the command "go".
struct Outcome {
    int code;
    std::string out;
    std::string err;
};

Outcome RunGo(std::vector<std::string> words, const Chosen& go, std::chrono::seconds* limit = nullptr) {
    words.insert(words.begin(), "program");
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    std::chrono::seconds ignored{0};
    bool json = false;
    const int code = RunCommandLine(static_cast<int>(argv.size()), argv.data(), [&](CLI::App& app, Chosen& chosen) {
        CLI::App* command = app.add_subcommand("go", "Goes");
        AddLimit(*command, limit == nullptr ? ignored : *limit, "Time limit");
        AddJson(*command, json);
        command->callback([&] { chosen = go; });
    });
    return {code, testing::internal::GetCapturedStdout(), testing::internal::GetCapturedStderr()};
}

ExitCode Pass() {
    return kPassed;
}

TEST(CommandLineTest, GivesTheExitCodeOfTheCommand) {
    EXPECT_EQ(RunGo({"go"}, Pass).code, 0);
    EXPECT_EQ(RunGo({"go", "--json"}, [] { return kTimeLimit; }).code, 4);
    EXPECT_EQ(RunGo({"go"}, [] { return kInterrupted; }).code, 130);
}

TEST(CommandLineTest, NeedsOneCommand) {
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{}, {"fly"}, {"go", "go"}, {"go", "--fly"}, {"--fly"}}) {
        const Outcome outcome = RunGo(words, Pass);
        EXPECT_EQ(outcome.code, 2);
        EXPECT_TRUE(outcome.err.starts_with("ominspectctl: ")) << outcome.err;
        EXPECT_TRUE(outcome.err.ends_with("\nRun with --help for more information.\n")) << outcome.err;
    }
}

TEST(CommandLineTest, NamesTheWordThatIsNoCommandOrOption) {
    EXPECT_TRUE(RunGo({"fly", "away"}, Pass).err.starts_with("ominspectctl: no such command: fly\n"));
    EXPECT_TRUE(RunGo({"--fly"}, Pass).err.starts_with("ominspectctl: no such option: --fly\n"));
    EXPECT_TRUE(RunGo({"f\x1B"}, Pass).err.starts_with("ominspectctl: no such command: f\\u{1B}\n"));
}

TEST(CommandLineTest, HelpAndVersionAreAnsweredInTheNameOfOminspectctl) {
    const Outcome help = RunGo({"--help"}, Pass);
    EXPECT_EQ(help.code, 0);
    EXPECT_TRUE(help.out.starts_with("Asks the inspection server.\nUsage: ominspectctl [OPTIONS] SUBCOMMAND\n"))
        << help.out;
    EXPECT_TRUE(help.out.ends_with("The message bus is the one at KIVO_BUS_ADDRESS, else the system bus.\n"));
    EXPECT_EQ(RunGo({"--version"}, Pass).out, "ominspectctl 0.1.0\n");
}

TEST(CommandLineTest, ATimeLimitIsBetweenASecondAndADay) {
    std::chrono::seconds limit{7};
    EXPECT_EQ(RunGo({"go"}, Pass, &limit).code, 0);
    EXPECT_EQ(limit.count(), 7) << "the command's own";
    EXPECT_EQ(RunGo({"go", "--timeout", "86400"}, Pass, &limit).code, 0);
    EXPECT_EQ(limit.count(), 86400);
    EXPECT_EQ(RunGo({"go", "--timeout", "1"}, Pass, &limit).code, 0);
    EXPECT_EQ(limit.count(), 1);
    EXPECT_EQ(RunGo({"go", "--timeout", "0"}, Pass).code, 2);
    EXPECT_EQ(RunGo({"go", "--timeout", "86401"}, Pass).code, 2);
}

TEST(CommandLineTest, AnExceptionIsALineAndAnExitCode) {
    const Outcome outcome = RunGo({"go"}, []() -> ExitCode { throw std::runtime_error("no memory"); });
    EXPECT_EQ(outcome.code, 3);
    EXPECT_EQ(outcome.err, "ominspectctl: no memory\n");
}

}  // namespace
