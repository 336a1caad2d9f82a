// The program's command line: exit codes and messages that need no message bus.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "programs.h"
#include "support/temp_folder.h"

using programs::Holds;
using programs::RunProgram;

namespace {

using CtlProgram = programs::WithoutBus;

TEST_F(CtlProgram, HelpNamesTheExitCodes) {
    const auto help = RunProgram({PROGRAM_CTL, "--help"});
    EXPECT_EQ(help.code, 0);
    for (const char* line : {"  0    passed", "  1    a check failed", "  2    wrong use", "  3    the server",
                             "  4    no final", "  130  ended by Ctrl-C"}) {
        EXPECT_TRUE(Holds(help.out, line)) << line;
    }
}

TEST_F(CtlProgram, AnswersWrongUseWithTwo) {
    EXPECT_EQ(RunProgram({PROGRAM_CTL}).code, 2);
    EXPECT_EQ(RunProgram({PROGRAM_CTL, "fly"}).code, 2);
    EXPECT_EQ(RunProgram({PROGRAM_CTL, "run"}).code, 2);
    EXPECT_EQ(RunProgram({PROGRAM_CTL, "run", "a", "--timeout", "0"}).code, 2);
    EXPECT_EQ(RunProgram({PROGRAM_CTL, "run", "a", "--timeout", "soon"}).code, 2);
    EXPECT_EQ(RunProgram({PROGRAM_CTL, "watch", "--count", "-1"}).code, 2);
    EXPECT_EQ(RunProgram({PROGRAM_CTL, "stop"}).code, 2);
    EXPECT_EQ(RunProgram({PROGRAM_CTL, "stop", "first"}).code, 2);
    EXPECT_EQ(RunProgram({PROGRAM_CTL, "stop", "-1"}).code, 2);
    EXPECT_EQ(RunProgram({PROGRAM_CTL, "stop", "4294967296"}).code, 2);
    EXPECT_EQ(RunProgram({PROGRAM_CTL, "reset"}).code, 2);
    for (const std::vector<std::string>& group : {std::vector<std::string>{}, {"--all", "a"}}) {
        std::vector<std::string> argv{PROGRAM_CTL, "group"};
        argv.insert(argv.end(), group.begin(), group.end());
        const auto outcome = RunProgram(argv);
        EXPECT_EQ(outcome.code, 2);
        EXPECT_TRUE(Holds(outcome.err, "give either item names or --all")) << outcome.err;
    }
}

TEST_F(CtlProgram, RefusesWhatDoesNotFitBeforeItSends) {
    const auto name = RunProgram({PROGRAM_CTL, "run", std::string(32, 'n')});
    EXPECT_EQ(name.code, 2);
    EXPECT_TRUE(Holds(name.err, "the item name is longer than 31 bytes"));
    const auto cmd = RunProgram({PROGRAM_CTL, "run", "a", "--cmd", std::string(128, 'c'), "--json"});
    EXPECT_EQ(cmd.code, 2);
    EXPECT_EQ(
        cmd.out,
        R"({"results":[{"item":"a","error":{"code":"invalid-argument","text":"the cmd is longer than 127 bytes"}}]})"
        "\n");
    for (const char* command : {"state", "reset", "group"}) {
        EXPECT_EQ(RunProgram({PROGRAM_CTL, command, std::string(32, 'n')}).code, 2) << command;
    }
    EXPECT_EQ(RunProgram({PROGRAM_CTL, "group", "a", "--cmd", std::string(128, 'c')}).code, 2);
    EXPECT_EQ(RunProgram({PROGRAM_CTL, "run", ""}).code, 2);
}

TEST_F(CtlProgram, SaysWhichNumbersItTakes) {
    const auto none = RunProgram({PROGRAM_CTL, "watch", "--count", "0"});
    EXPECT_EQ(none.code, 2);
    EXPECT_EQ(none.err,
              "ominspectctl: --count: Value 0 not in range 1 to 1000000000\nRun with --help for more information.\n");
}

TEST_F(CtlProgram, AnswersForEveryItemOfARun) {
    const auto run = RunProgram({PROGRAM_CTL, "run", "load", "disk", "--json"});
    EXPECT_TRUE(Holds(run.out, "{\"item\":\"load\",\"error\":{\"code\":\"bus-unreachable\"")) << run.out;
    EXPECT_TRUE(Holds(run.out, "{\"item\":\"disk\",\"error\":{\"code\":\"bus-unreachable\"")) << run.out;
    EXPECT_TRUE(Holds(run.err, "ominspectctl: disk: bus unreachable at unix:path=/nonexistent/bus: ")) << run.err;
}

TEST_F(CtlProgram, AnswersAMissingBusWithThree) {
    for (const char* command : {"run", "state", "reset"}) {
        const auto outcome = RunProgram({PROGRAM_CTL, command, "load", "--json"});
        EXPECT_EQ(outcome.code, 3) << command;
        EXPECT_TRUE(Holds(outcome.out, "{\"item\":\"load\",\"error\":{\"code\":\"bus-unreachable\"")) << command;
        EXPECT_TRUE(outcome.err.starts_with("ominspectctl: load: bus unreachable at ")) << outcome.err;
    }
    for (const std::vector<std::string>& command :
         {std::vector<std::string>{"group", "load"}, {"group", "--all"}, {"list"}, {"stop", "17"}}) {
        std::vector<std::string> argv{PROGRAM_CTL};
        argv.insert(argv.end(), command.begin(), command.end());
        argv.emplace_back("--json");
        const auto outcome = RunProgram(argv);
        EXPECT_EQ(outcome.code, 3) << command[0];
        EXPECT_TRUE(Holds(outcome.out, "{\"error\":{\"code\":\"bus-unreachable\"")) << command[0];
    }
    const auto watch = RunProgram({PROGRAM_CTL, "watch", "--json"});
    EXPECT_EQ(watch.code, 3);
    EXPECT_TRUE(watch.out.starts_with("{\"error\":{\"code\":\"bus-unreachable\"")) << watch.out;
}

TEST_F(CtlProgram, SaysThatItCannotWrite) {
    const auto outcome = RunProgram({"/bin/sh", "-c", "exec \"$0\" run a --json >/dev/full", PROGRAM_CTL});
    EXPECT_EQ(outcome.code, 3);
    EXPECT_TRUE(Holds(outcome.err, "cannot write the output"));
}

TEST_F(CtlProgram, HelpNamesTheCommandsOfTheOtherProgram) {
    const auto help = RunProgram({PROGRAM_CTL, "--help"});
    EXPECT_TRUE(Holds(help.out, "  collect ")) << help.out;
    EXPECT_TRUE(Holds(help.out, "  doctor ")) << help.out;
    const auto collect = RunProgram({PROGRAM_CTL, "collect", "--help"});
    EXPECT_EQ(collect.code, 0);
    EXPECT_TRUE(Holds(collect.out, "Usage: ominspectctl collect [OPTIONS] [SOURCE...]")) << collect.out;
    for (const char* option :
         {"--config FILE ", "--area DIR ", "--output FILE ", "--timeout SECONDS", "--total-timeout SECONDS",
          "--max-size SIZE", "--exclude PATTERN ", "--redact-patterns FILE "}) {
        EXPECT_TRUE(Holds(collect.out, option)) << option << '\n' << collect.out;
    }
    EXPECT_TRUE(Holds(collect.out, "  1    a check failed")) << collect.out;
    const auto doctor = RunProgram({PROGRAM_CTL, "doctor", "--help"});
    EXPECT_EQ(doctor.code, 0);
    EXPECT_TRUE(Holds(doctor.out, "--config FILE ")) << doctor.out;
}

TEST_F(CtlProgram, SaysWhichProgramItCannotRun) {
    const support::TempFolder folder;
    const std::string ctl = folder / "bin/ominspectctl";
    std::filesystem::create_directories(folder / "bin");
    std::filesystem::copy_file(PROGRAM_CTL, ctl);
    const auto outcome = RunProgram({ctl, "doctor", "--config", "x"});
    EXPECT_EQ(outcome.code, 3);
    EXPECT_EQ(outcome.out, "");
    EXPECT_TRUE(outcome.err.starts_with("ominspectctl: cannot run /")) << outcome.err;
    EXPECT_TRUE(
        outcome.err.ends_with("/ominspect-collect, which carries out collect and doctor: No such file or directory\n"))
        << outcome.err;
    EXPECT_EQ(RunProgram({ctl, "--version"}).code, 0) << "the other commands do not need it";
}

TEST_F(CtlProgram, NeedsNeitherTheServerNorTheLibrariesOfPackages) {
    const auto libraries = RunProgram({"/usr/bin/env", "LD_TRACE_LOADED_OBJECTS=1", PROGRAM_CTL});
    EXPECT_TRUE(Holds(libraries.out, "libc.so")) << libraries.out;
    for (const char* library : {"libominspect.so", "libarchive", "libcrypto"}) {
        EXPECT_FALSE(Holds(libraries.out, library)) << library;
    }
}

}  // namespace
