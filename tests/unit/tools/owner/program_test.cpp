// The command line of the owner of configured items: exit codes and messages that need no message bus.
#include <gtest/gtest.h>

#include <string>

#include "programs.h"
#include "support/child.h"
#include "support/temp_folder.h"

using programs::Holds;
using programs::RunProgram;

namespace {

using OwnerProgram = programs::WithoutBus;

TEST_F(OwnerProgram, ChecksTheShippedFiles) {
    for (const char* name : {"system", "service"}) {
        const auto outcome = RunProgram({PROGRAM_OWNER, "--check", std::string(SHIPPED_OWNERS "/") + name + ".xml"});
        EXPECT_EQ(outcome.code, 0) << outcome.err;
        EXPECT_TRUE(Holds(outcome.out, "synchronous")) << name;
    }
}

TEST_F(OwnerProgram, ChecksAFileAgainstItsSchema) {
    const support::WorkingFolder work;
    support::WriteFile("o.xml", "<Owner process='p'><Item name='a'><Command>/bin/a\nb</Command></Item></Owner>");
    const auto refused = RunProgram({PROGRAM_OWNER, "--check", "o.xml"});
    EXPECT_EQ(refused.code, 2);
    EXPECT_TRUE(refused.err.starts_with("ominspect-owner: o.xml: line 1: Element 'Command': ")) << refused.err;
    const auto unchecked = support::Run({PROGRAM_OWNER, "--check", "o.xml"}, {"PATH=/nowhere"});
    EXPECT_EQ(unchecked.exitCode, 0);
    EXPECT_TRUE(Holds(unchecked.output,
                      "ominspect-owner: not checked against the schema: xmllint: No such file or directory\n"))
        << unchecked.output;
    EXPECT_FALSE(unchecked.output.starts_with("ominspect-owner: ")) << "what would be done comes first";
}

TEST_F(OwnerProgram, AnswersAMistakeWithTwo) {
    const auto outcome = RunProgram({PROGRAM_OWNER, "/dev/null"});
    EXPECT_EQ(outcome.code, 2);
    EXPECT_EQ(outcome.err, "ominspect-owner: /dev/null: not a regular file\n");
    EXPECT_EQ(RunProgram({PROGRAM_OWNER}).code, 2);
    EXPECT_EQ(RunProgram({PROGRAM_OWNER, "--fly", "x"}).code, 2);
}

TEST_F(OwnerProgram, TellsItsVersionAndHowItIsUsed) {
    const auto version = RunProgram({PROGRAM_OWNER, "--version"});
    EXPECT_EQ(version.code, 0);
    EXPECT_EQ(version.out, "ominspect-owner 0.1.0\n");
    const auto help = RunProgram({PROGRAM_OWNER, "--help"});
    EXPECT_EQ(help.code, 0);
    EXPECT_TRUE(Holds(help.out, "--check")) << help.out;
    EXPECT_TRUE(Holds(help.out, "Exit code: 0 ended as asked, ")) << help.out;
}

TEST_F(OwnerProgram, AnswersAMissingBusWithThree) {
    const auto outcome = RunProgram({PROGRAM_OWNER, SHIPPED_OWNERS "/system.xml"});
    EXPECT_EQ(outcome.code, 3);
    EXPECT_TRUE(Holds(outcome.err, "ominspect-owner: cannot join the message bus: "));
}

}  // namespace
