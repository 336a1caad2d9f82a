// The last results that a user's commands have seen.
#include "history.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "support/forked.h"
#include "support/temp_folder.h"

using namespace ominspect;
using namespace ominspect::ctl;
using support::Contents;
using support::WriteFile;

namespace {

class HistoryTest : public testing::Test {
protected:
    HistoryTest() {
        (void)setenv("XDG_STATE_HOME", home_.Path().c_str(), 1);
        (void)setenv("KIVO_BUS_ADDRESS", "unix:path=/bus", 1);
    }

    static void Remember(const char* item, const char* status, const char* text) {
        History history;
        history.Add({item, status, text}, kTime);
        EXPECT_FALSE(history.Save());
    }

    static std::string Found(const char* item) {
        const auto last = History().Find(item);
        return last ? last->status + "/" + last->text : "nothing";
    }

    static constexpr TimePoint kTime{std::chrono::milliseconds(1000000000007)};
    const support::TempFolder home_;
    const std::string path_ = home_ / "ominspect/results.json";
};

TEST_F(HistoryTest, AResultIsFoundByTheNextProgram) {
    Remember("load", "success", "LOAD OK");
    const auto last = History().Find("load");
    ASSERT_TRUE(last);
    EXPECT_EQ(last->status, "success");
    EXPECT_EQ(last->text, "LOAD OK");
    EXPECT_EQ(last->time, kTime);
    EXPECT_EQ(Contents(path_),
              "{\"buses\":{\"unix:path=/bus\":"
              "{\"load\":{\"status\":\"success\",\"text\":\"LOAD OK\",\"timeMs\":1000000000007}}}}\n");
    EXPECT_EQ(std::filesystem::status(path_).permissions(), std::filesystem::perms(0600));
}

TEST_F(HistoryTest, ANewerResultTakesThePlaceOfAnOlderAndLeavesTheOthers) {
    Remember("load", "success", "LOAD OK");
    Remember("disk", "warn", "DISK WARNING");
    Remember("load", "fail", "LOAD CRITICAL");
    EXPECT_EQ(Found("load"), "fail/LOAD CRITICAL");
    EXPECT_EQ(Found("disk"), "warn/DISK WARNING");
    EXPECT_EQ(Found("other"), "nothing");
    EXPECT_EQ(Contents(path_),
              "{\"buses\":{\"unix:path=/bus\":{"
              "\"disk\":{\"status\":\"warn\",\"text\":\"DISK WARNING\",\"timeMs\":1000000000007},"
              "\"load\":{\"status\":\"fail\",\"text\":\"LOAD CRITICAL\",\"timeMs\":1000000000007}}}}\n");
}

TEST_F(HistoryTest, WhatIsSavedIsFoundAndNotSavedAgain) {
    History history;
    history.Add({"load", "success", "LOAD OK"}, kTime);
    EXPECT_FALSE(history.Save());
    const auto last = history.Find("load");
    EXPECT_TRUE(last && last->text == "LOAD OK");
    Remember("load", "fail", "of another command");
    EXPECT_FALSE(history.Save());
    EXPECT_EQ(Found("load"), "fail/of another command");
}

TEST_F(HistoryTest, WhatIsNoResultIsNotRemembered) {
    Remember("a", "running", "begin");
    Remember("b", "idle", "init");
    Remember("c", "", "done");
    EXPECT_FALSE(std::filesystem::exists(path_));
    for (const char* item : {"a", "b", "c"}) {
        EXPECT_EQ(Found(item), "nothing");
    }
}

TEST_F(HistoryTest, ThatNobodyOwnsAnItemIsAResultToo) {
    Remember("load", "fail", "no support");
    EXPECT_EQ(Found("load"), "fail/no support");
}

TEST_F(HistoryTest, EachBusHasItsOwn) {
    Remember("load", "success", "of one bus");
    (void)setenv("KIVO_BUS_ADDRESS", "unix:path=/other", 1);
    EXPECT_EQ(Found("load"), "nothing");
    Remember("load", "fail", "of the other");
    EXPECT_EQ(Found("load"), "fail/of the other");
    (void)setenv("KIVO_BUS_ADDRESS", "unix:path=/bus", 1);
    EXPECT_EQ(Found("load"), "success/of one bus");
}

TEST_F(HistoryTest, TheBusWithoutAnAddressIsCalledSystem) {
    (void)unsetenv("KIVO_BUS_ADDRESS");
    Remember("load", "success", "");
    EXPECT_TRUE(Contents(path_).starts_with(R"({"buses":{"system":{"load":)")) << Contents(path_);
}

TEST_F(HistoryTest, IsForItsUserOnly) {
    const mode_t former = umask(0);
    Remember("load", "success", "");
    (void)umask(former);
    for (const std::string& file : {path_, path_ + ".lock"}) {
        EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms{0600}) << file;
    }
}

TEST_F(HistoryTest, ABusThatIsUsedAgainIsNotTheOldest) {
    Remember("load", "success", "daily");
    for (int i = 0; i < 15; ++i) {
        (void)setenv("KIVO_BUS_ADDRESS", ("unix:path=/" + std::to_string(i)).c_str(), 1);
        Remember("load", "success", "");
    }
    (void)setenv("KIVO_BUS_ADDRESS", "unix:path=/bus", 1);
    Remember("load", "success", "daily");
    (void)setenv("KIVO_BUS_ADDRESS", "unix:path=/another", 1);
    Remember("load", "success", "");
    (void)setenv("KIVO_BUS_ADDRESS", "unix:path=/bus", 1);
    EXPECT_EQ(Found("load"), "success/daily");
}

TEST_F(HistoryTest, TheOldestBusesAndItemsAreForgotten) {
    for (int i = 0; i < 17; ++i) {
        (void)setenv("KIVO_BUS_ADDRESS", ("unix:path=/" + std::to_string(i)).c_str(), 1);
        Remember("load", "success", "");
    }
    EXPECT_EQ(Found("load"), "success/");
    (void)setenv("KIVO_BUS_ADDRESS", "unix:path=/0", 1);
    EXPECT_EQ(Found("load"), "nothing");
    Remember("first", "success", "");
    {
        History history;
        for (int i = 0; i < 1024; ++i) {
            history.Add({"item" + std::to_string(i), "success", ""}, kTime);
        }
        EXPECT_FALSE(history.Save());
    }
    EXPECT_EQ(Found("first"), "nothing");
    EXPECT_EQ(Found("item0"), "success/");
}

TEST_F(HistoryTest, BytesThatAreNoTextAreKeptAsText) {
    Remember("a\xFF", "x\n", "\xC3");
    EXPECT_EQ(Found("a\xFF"), "x\n/\xEF\xBF\xBD");
}

TEST_F(HistoryTest, AFileThatIsNoHistoryCountsAsEmptyAndIsReplaced) {
    for (const char* content :
         {"", "not JSON", "[]", R"({"buses":3})", R"({"buses":{"unix:path=/bus":[{"timeMs":1}]}})",
          R"({"buses":{"unix:path=/bus":{"load":7,"disk":{"timeMs":-1},"swap":{"timeMs":1e300}}}})"}) {
        WriteFile(path_, content);
        for (const char* item : {"load", "disk", "swap"}) {
            EXPECT_EQ(Found(item), "nothing") << content;
        }
        Remember("load", "success", "LOAD OK");
        EXPECT_EQ(Found("load"), "success/LOAD OK") << content;
    }
}

TEST_F(HistoryTest, TimesThatDoNotFitAreLeftOut) {
    WriteFile(path_, R"({"buses":{"unix:path=/bus":{"first":{"timeMs":0,"status":"a","text":"b"},)"
                     R"("last":{"timeMs":8796093022207,"status":"c","text":"d"},"later":{"timeMs":8796093022208}}}})");
    EXPECT_EQ(Found("first"), "a/b");
    EXPECT_EQ(Found("last"), "c/d");
    EXPECT_EQ(Found("later"), "nothing");
}

TEST_F(HistoryTest, AFolderThatCannotBeMadeIsSaid) {
    WriteFile(home_ / "ominspect", "a file in its place");
    History history;
    history.Add({"load", "success", ""}, kTime);
    const auto error = history.Save();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->number, ENOTDIR);
    EXPECT_EQ(error->text, "cannot make the folder " + (home_ / "ominspect") + ": Not a directory");
}

TEST_F(HistoryTest, AFolderThatMustNotBeWrittenIsSaidWithThatCause) {
    std::filesystem::permissions(home_.Path(), std::filesystem::perms(0555));
    const auto lines = support::InForkedChild([]() -> std::vector<std::string> {
        support::BecomeNobody();
        History history;
        history.Add({"load", "success", ""}, kTime);
        const auto error = history.Save();
        return {error ? error->text : "no error"};
    });
    std::filesystem::permissions(home_.Path(), std::filesystem::perms(0755));
    EXPECT_EQ(lines,
              std::vector<std::string>{"cannot make the folder " + (home_ / "ominspect") + ": Permission denied"});
}

TEST_F(HistoryTest, AHomeThatIsNotThereIsNotMade) {
    const auto missing = home_ / "missing";
    (void)unsetenv("XDG_STATE_HOME");
    (void)setenv("HOME", missing.c_str(), 1);
    Remember("load", "success", "LOAD OK");
    EXPECT_FALSE(std::filesystem::exists(missing));
    (void)std::filesystem::create_directory(missing);
    Remember("load", "success", "LOAD OK");
    EXPECT_TRUE(std::filesystem::exists(missing + "/.local/state/ominspect/results.json"));
}

TEST_F(HistoryTest, WithoutAHomeNothingIsSaved) {
    (void)unsetenv("XDG_STATE_HOME");
    (void)unsetenv("HOME");
    Remember("load", "success", "LOAD OK");
    EXPECT_EQ(Found("load"), "nothing");
}

TEST_F(HistoryTest, AHomeThatIsNotAbsoluteIsNone) {
    const support::WorkingFolder here;
    (void)setenv("HOME", ".", 1);
    for (const char* state : {"", "state"}) {
        (void)setenv("XDG_STATE_HOME", state, 1);
        Remember("load", "success", "LOAD OK");
        EXPECT_EQ(Found("load"), "nothing") << state;
        EXPECT_TRUE(std::filesystem::is_empty(here.Path())) << state;
    }
}

}  // namespace
