// What is known of a group run while it goes on.
#include "group_progress.h"

#include <gtest/gtest.h>

using namespace ominspect::ctl;
using namespace ominspect::client;

namespace {

using std::chrono::milliseconds;

class GroupProgressTest : public testing::Test {
protected:
    GroupProgressTest() { progress_.Begin(4711, 0, 3); }

    static GroupItem Item(const char* name, const char* status, const char* text, int start = 0, int end = 0) {
        GroupItem item{{name, status, text}, false, std::nullopt, std::nullopt};
        if (start > 0) {
            item.start = SystemTime(milliseconds(start));
        }
        if (end > 0) {
            item.end = SystemTime(milliseconds(end));
        }
        return item;
    }

    const GroupProgress::Clock::time_point now_ = GroupProgress::Clock::now();
    GroupProgress progress_{{"load", "disk", "x"}};
};

TEST_F(GroupProgressTest, ItemsWaitForTheirTurn) {
    EXPECT_EQ(progress_.Head(), "ITEM  STATUS         TIME  TEXT");
    EXPECT_EQ(progress_.Line(0), "load  waiting           -  ");
    EXPECT_EQ(progress_.Summary(), "0 of 3 done");
    EXPECT_FALSE(progress_.Passed());
}

TEST_F(GroupProgressTest, EventsMoveAnItemFromRunningToDone) {
    EXPECT_TRUE(progress_.OnRun({"disk", "running", "begin"}, now_));
    EXPECT_EQ(progress_.Line(1), "disk  running           -  ");
    EXPECT_EQ(progress_.Line(1, now_ + milliseconds(1500)), "disk  running     1500 ms  ");
    EXPECT_EQ(progress_.Summary(), "0 of 3 done, 1 running");
    EXPECT_TRUE(progress_.OnRun({"disk", "warn", "DISK WARNING"}, now_ + milliseconds(2000)));
    EXPECT_EQ(progress_.Line(1), "disk  warn        2000 ms  DISK WARNING");
    EXPECT_EQ(progress_.Summary(), "1 of 3 done");
}

TEST_F(GroupProgressTest, AnEventThatTellsNothingNewIsNoNews) {
    EXPECT_TRUE(progress_.OnRun({"disk", "success", "OK"}, now_));
    EXPECT_FALSE(progress_.OnRun({"disk", "success", "OK"}, now_));
    EXPECT_FALSE(progress_.OnRun({"other", "success", "OK"}, now_));
    EXPECT_FALSE(progress_.OnRun({"unknown_group", "running", "unknown_group"}, now_));
    EXPECT_TRUE(progress_.OnRun({"disk", "success", "still OK"}, now_));
    EXPECT_TRUE(progress_.OnRun({"disk", "warn", "still OK"}, now_));
}

TEST_F(GroupProgressTest, TheRecordHasTheLastWord) {
    progress_.OnRun({"load", "success", "LOAD OK"}, now_);
    progress_.OnRun({"disk", "running", "begin"}, now_);
    const auto changed =
        progress_.OnRecord({4711,
                            {Item("load", "success", "LOAD OK", 1000, 1250),
                             Item("disk", "fail", "timeout", 1250, 9250), Item("x", "fail", "no support")}});
    EXPECT_EQ(changed, (std::vector<std::size_t>{1, 2}));  // the first one's result was known
    EXPECT_EQ(progress_.Line(0), "load  success      250 ms  LOAD OK");
    EXPECT_EQ(progress_.Line(1), "disk  fail        8000 ms  timeout");
    EXPECT_EQ(progress_.Line(2),
              "x     fail              -  no support (item unknown: no process has registered \"x\" with the server)");
    EXPECT_EQ(progress_.Summary(), "3 of 3 done");
    EXPECT_FALSE(progress_.Passed());
}

TEST_F(GroupProgressTest, AnItemMayTakeNoTimeButNotLess) {
    progress_.OnRecord({4711,
                        {Item("load", "success", "OK", 1000, 1000), Item("disk", "success", "OK", 1000, 999),
                         Item("x", "fail", "stopped", 1000)}});
    EXPECT_EQ(progress_.Line(0), "load  success        0 ms  OK");
    EXPECT_EQ(progress_.Line(1), "disk  success           -  OK");  // the clock was set back
    EXPECT_EQ(progress_.Line(2), "x     fail              -  stopped");
}

TEST_F(GroupProgressTest, WhatHappensAfterTheRecordIsSomebodyElsesRun) {
    progress_.OnRecord({4711, {Item("load", "success", "OK"), Item("disk", "success", ""), Item("x", "success", "")}});
    EXPECT_FALSE(progress_.OnRun({"load", "running", "begin"}, now_));
    EXPECT_FALSE(progress_.OnRun({"load", "fail", "other"}, now_));
    EXPECT_EQ(progress_.Line(0), "load  success           -  OK");
    EXPECT_TRUE(progress_.Passed());
}

TEST_F(GroupProgressTest, AMalformedResultIsAFailure) {
    GroupItem malformed = Item("load", "success", "text without an end");
    malformed.isMalformed = true;
    progress_.OnRecord({4711, {malformed, Item("disk", "success", ""), Item("x", "success", "")}});
    EXPECT_EQ(progress_.Line(0), "load  malformed          -  the owner's result has a text that does not end");
    EXPECT_FALSE(progress_.Passed());
}

TEST_F(GroupProgressTest, AllItemsMustHaveEndedWithSuccessToPass) {
    progress_.OnRecord({4711, {Item("load", "success", ""), Item("disk", "success", ""), Item("x", "success", "")}});
    EXPECT_TRUE(progress_.Passed());
    progress_.OnRecord({4711, {Item("load", "success", ""), Item("disk", "warn", ""), Item("x", "success", "")}});
    EXPECT_FALSE(progress_.Passed());
}

TEST_F(GroupProgressTest, AnItemOfAStoppedGroupDidNotRun) {
    progress_.OnRecord({4711, {Item("load", "success", "OK"), Item("disk", "fail", "stopped"), Item("", "", "")}});
    EXPECT_EQ(progress_.Line(2), "x     not run           -  ");
    EXPECT_EQ(progress_.Summary(), "2 of 3 done, 1 not run");
    EXPECT_FALSE(progress_.Passed());
}

TEST_F(GroupProgressTest, TheDocumentHoldsResultsAndGroups) {
    progress_.OnRecord({4711, {Item("load", "success", "OK", 1000, 1250), Item("disk", "fail", "no support")}});
    EXPECT_EQ(progress_.Document().Print(),
              R"({"results":[{"item":"load","status":"success","text":"OK","durationMs":250,)"
              R"("start":"1970-01-01T00:00:01.000Z"},)"
              R"({"item":"disk","status":"fail","text":"no support",)"
              R"("hint":"item unknown: no process has registered \"disk\" with the server"},)"
              R"({"item":"x","status":"waiting","text":""}],"groups":[{"taskId":4711,"items":3}]})");
}

TEST(GroupProgress, EachGroupHasItsOwnRows) {
    GroupProgress progress({"a", "b", "a"});
    EXPECT_FALSE(progress.OnRun({"a", "running", ""}, {}));  // no group has begun
    progress.Begin(17, 0, 2);
    EXPECT_EQ(progress.RowsOf("a"), std::vector<std::size_t>{0});
    progress.OnRecord({17, {{{"a", "success", "1"}, false, {}, {}}, {{"b", "success", "2"}, false, {}, {}}}});
    progress.Begin(18, 2, 1);
    EXPECT_EQ(progress.RowsOf("a"), std::vector<std::size_t>{2});
    EXPECT_TRUE(progress.OnRun({"a", "fail", "3"}, {}));
    EXPECT_EQ(progress.Line(0), "a     success           -  1");
    EXPECT_EQ(progress.Line(2), "a     fail              -  3");
}

TEST(GroupProgress, ASmallScreenShowsWhatRunsAndWhatEndedLast) {
    GroupProgress progress({"a", "b", "c", "d", "e"});
    progress.Begin(17, 0, 5);
    EXPECT_EQ(progress.Visible(2), (std::vector<std::size_t>{0, 1})) << "while all wait";
    progress.OnRun({"a", "success", ""}, {});
    progress.OnRun({"b", "success", ""}, {});
    progress.OnRun({"d", "running", ""}, {});
    progress.OnRun({"c", "success", ""}, {});
    EXPECT_EQ(progress.Visible(5), (std::vector<std::size_t>{0, 1, 2, 3, 4}));
    EXPECT_EQ(progress.Visible(1), (std::vector<std::size_t>{3}));
    EXPECT_EQ(progress.Visible(2), (std::vector<std::size_t>{2, 3}));
    EXPECT_EQ(progress.Visible(3), (std::vector<std::size_t>{1, 2, 3}));
    progress.OnRecord({17, {{{"a", "fail", ""}, false, {}, {}}}});
    EXPECT_EQ(progress.Visible(2), (std::vector<std::size_t>{0, 3})) << "what the record changes ended last";
}

}  // namespace
