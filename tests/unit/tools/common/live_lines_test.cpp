// Lines that are drawn again in the same place: the bytes that go to the terminal.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "common/live_lines.h"
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

}  // namespace
