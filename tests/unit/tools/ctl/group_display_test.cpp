// A group's table on a terminal, which the process's outputs are while it is shown.
#include "group_display.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "common/fd.h"
#include "support/bare_terminal.h"
#include "support/eventually.h"

using namespace ominspect;
using namespace ominspect::ctl;

namespace {

// While it lives, both outputs of the process go to the terminal.
class OutputsTo {
public:
    explicit OutputsTo(const std::string& path) : former_{UniqueFd(dup(1)), UniqueFd(dup(2))} {
        const UniqueFd terminal(open(path.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC));
        EXPECT_TRUE(terminal);
        Redirect(terminal.Get(), terminal.Get());
    }
    ~OutputsTo() { Redirect(former_[0].Get(), former_[1].Get()); }
    OutputsTo(const OutputsTo&) = delete;
    OutputsTo& operator=(const OutputsTo&) = delete;

private:
    static void Redirect(int out, int err) {
        (void)std::fflush(stdout);
        (void)dup2(out, 1);
        (void)dup2(err, 2);
    }

    const UniqueFd former_[2];
};

TEST(GroupDisplayTest, WhatIsSaidTakesThePlaceOfTheTable) {
    (void)setenv("TERM", "xterm", 1);
    support::BareTerminal terminal;
    bool isDrawn = false;
    std::string said;
    {
        const OutputsTo outputs(terminal.Path());
        GroupDisplay display({"item"}, false, [] {});
        display.OnStart(7, 0, 1);
        isDrawn =
            support::Eventually([&] { return terminal.Output().find("0 of 1 done\r\n\x1b[?7h") != std::string::npos; });
        display.Say("this");
        said = terminal.Output();
        (void)display.Finish({});
    }
    EXPECT_TRUE(isDrawn) << said;
    EXPECT_NE(said.find("\x1b[4A\r\x1b[Jominspectctl: this\r\n"), std::string::npos) << said;
    EXPECT_TRUE(support::Eventually([&] {
        return terminal.Output().ends_with(
            "task 7: 1 item\r\nITEM  STATUS         TIME  TEXT\r\nitem  waiting           -  \r\n0 of 1 done\r\n");
    })) << terminal.Output();
}

TEST(GroupDisplayTest, WhatHappensAfterTheEndIsNotShown) {
    testing::internal::CaptureStdout();
    GroupDisplay display({"item"}, false, [] {});
    display.OnStart(7, 0, 1);
    display.OnRun({"item", "running", "begin"});
    EXPECT_FALSE(display.Finish({}));
    display.OnRun({"item", "success", "late"});
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "task 7: 1 item\nITEM  STATUS         TIME  TEXT\nitem  running           -  \n0 of 1 done, 1 running\n");
}

TEST(GroupDisplayTest, ATerminalOfFourLinesShowsOneItem) {
    (void)setenv("TERM", "xterm", 1);
    support::BareTerminal terminal;
    const UniqueFd fd(open(terminal.Path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    const winsize size{4, 80, 0, 0};
    ASSERT_EQ(ioctl(fd.Get(), TIOCSWINSZ, &size), 0);
    bool isDrawn = false;
    {
        const OutputsTo outputs(terminal.Path());
        GroupDisplay display({"first", "second"}, false, [] {});
        display.OnStart(7, 0, 2);
        isDrawn = support::Eventually([&] { return terminal.Output().find("0 of 2 done\r\n") != std::string::npos; });
        (void)display.Finish({});
    }
    EXPECT_TRUE(isDrawn);
    const std::string shown = terminal.Output().substr(0, terminal.Output().find("0 of 2 done"));
    EXPECT_NE(shown.find("first   waiting"), std::string::npos) << shown;
    EXPECT_EQ(shown.find("second"), std::string::npos) << shown;
}

}  // namespace
