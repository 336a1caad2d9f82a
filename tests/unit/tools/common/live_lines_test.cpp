// Lines that are drawn again in the same place: the bytes that go to the terminal.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include <sys/ioctl.h>
#include <unistd.h>

#include "common/live_lines.h"
#include "support/bare_terminal.h"
#include "support/temp_folder.h"

using namespace ominspect;

namespace {

class LiveLinesTest : public testing::Test {
protected:
    std::string Written() const { return support::Contents(path_); }

    const support::TempFolder folder_;
    const std::string path_ = folder_ / "out";
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_{std::fopen(path_.c_str(), "w"), std::fclose};
    LiveLines lines_{file_.get()};
};

TEST_F(LiveLinesTest, AreDrawnWithoutWrapping) {
    lines_.Draw({"one", "two"});
    EXPECT_EQ(Written(), "\x1b[?7lone\ntwo\n\x1b[?7h");
}

TEST_F(LiveLinesTest, TakeThePlaceOfTheFormerOnes) {
    lines_.Draw({"one", "two", "three"});
    const std::size_t before = Written().size();
    lines_.Draw({"new"});
    EXPECT_EQ(Written().substr(before), "\x1b[3A\r\x1b[J\x1b[?7lnew\n\x1b[?7h");
}

TEST_F(LiveLinesTest, AreErasedOnce) {
    lines_.Erase();
    EXPECT_EQ(Written(), "") << "nothing was drawn";
    lines_.Draw({"one"});
    const std::size_t before = Written().size();
    lines_.Erase();
    lines_.Erase();
    EXPECT_EQ(Written().substr(before), "\x1b[1A\r\x1b[J");
}

TEST_F(LiveLinesTest, AreCutToTheUsualSizeOfATerminalThatTellsNone) {
    EXPECT_EQ(lines_.Height(), 24U);
    lines_.Draw({std::string(80, 'x'), std::string(81, 'x')});
    EXPECT_EQ(Written(), "\x1b[?7l" + std::string(80, 'x') + "\n" + std::string(79, 'x') + "\xE2\x80\xA6\n\x1b[?7h");
}

TEST_F(LiveLinesTest, AreForTerminalsOnly) {
    (void)setenv("TERM", "xterm", 1);
    EXPECT_FALSE(IsTerminal(file_.get()));
}

class OnATerminalTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(stream_, nullptr);
        (void)setenv("TERM", "xterm", 1);
        (void)unsetenv("NO_COLOR");
    }
    std::size_t HeightAt(unsigned short lines, unsigned short columns) const {
        const winsize size{lines, columns, 0, 0};
        EXPECT_EQ(ioctl(fileno(stream_.get()), TIOCSWINSZ, &size), 0);
        return LiveLines(stream_.get()).Height();
    }

    const support::BareTerminal terminal_;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream_{std::fopen(terminal_.Path().c_str(), "w"),
                                                                  std::fclose};
};

TEST_F(OnATerminalTest, LinesFollowItsSizeWhereItTellsOne) {
    EXPECT_EQ(HeightAt(50, 132), 50U);
    EXPECT_EQ(HeightAt(50, 0), 24U);
    EXPECT_EQ(HeightAt(0, 132), 24U);
}

TEST_F(OnATerminalTest, ColoursAreWantedUnlessTheyAreRefused) {
    EXPECT_TRUE(WantsColours(stream_.get()));
    (void)setenv("NO_COLOR", "", 1);
    EXPECT_TRUE(WantsColours(stream_.get()));
    (void)setenv("NO_COLOR", "1", 1);
    EXPECT_FALSE(WantsColours(stream_.get()));
    (void)unsetenv("NO_COLOR");
    (void)setenv("TERM", "dumb", 1);
    EXPECT_FALSE(IsTerminal(stream_.get()));
    EXPECT_FALSE(WantsColours(stream_.get()));
}

}  // namespace
