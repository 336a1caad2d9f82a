// The owner's items: what run and stop requests are answered with, and what is reported.
#include "items/item_table.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/eventually.h"
#include "support/process_state.h"
#include "support/temp_folder.h"

using namespace ominspect::items;
using namespace std::chrono_literals;

namespace {

constexpr const char* kLongest = "1234567890123456789012345678901";  // 31 letters

class ItemTableTest : public testing::Test {
protected:
    void SetUp() override { Make(1); }

    void Make(unsigned maxParallel, std::chrono::milliseconds settle = 1ms) {
        config_ = {"p",
                   maxParallel,
                   {Item("now", true, "echo \"OK $INSPECT_CMD\"; exit 1"), Item("later", false, "echo LATER"),
                    Item("ends", false, "until [ -e '" + Log() + "' ]; do sleep 0.01; done; echo OVER"),
                    // Counts its starts and waits to be ended.
                    Item("long", false, "echo start >>'" + Log() + "'; sleep 1000"),
                    Item("hang", true, "echo start >>'" + Log() + "'; sleep 1000"),
                    // Ends when it was to be left, but its answer cannot be deferred.
                    Item("kept", true, "until [ -e '" + Log() + "' ]; do sleep 0.01; done; echo OVER"),
                    Item(kLongest, true, "true"), Item("measure", true, "echo \"OK | $INSPECT_CMD\""),
                    Item("measure_later", false, "echo 'OK | a=1s'")}};
        const auto keep = [this](const tagKivoOmInspectionResult& result) { Keep(result); };
        table_ = std::make_unique<ItemTable>(
            config_, keep,
            [this](const std::string& item, const std::vector<ominspect::client::PerfValue>& values) {
                std::string line = item + " measured";
                for (const auto& value : values) {
                    line += " " + value.label;
                }
                const std::lock_guard lock(mutex_);
                reports_.push_back(line);
            },
            [this, keep] {
                if (!mayDefer_) {
                    std::ofstream(Log(), std::ios::app).close();
                }
                return mayDefer_ ? ItemTable::Answer(keep) : nullptr;
            },
            ItemTable::Times{.termGrace = 1s, .settle = settle});
    }

    static ItemConfig Item(const std::string& name, bool isSync, const std::string& script) {
        return {name, 1h, isSync, {"/bin/sh", "-c", script}};
    }
    std::string Log() const { return folder_ / "log"; }
    bool Started(const std::string& starts = "start\n") const {
        return support::Eventually([&] { return support::Contents(Log()) == starts; });
    }

    // Answer to a request as "status: text"; ": " for a deferred one, "" for an unknown item.
    std::string Ask(const std::string& item, const std::string& argument = "") {
        tagKivoOmInspectionResult result{};
        if (!table_->Handle(item, argument, result)) {
            return "";
        }
        return std::string(result.status) + ": " + result.text;
    }

    void Keep(const tagKivoOmInspectionResult& result) {
        const std::lock_guard lock(mutex_);
        reports_.push_back(std::string(result.name) + ": " + result.status + ": " + result.text);
    }
    std::vector<std::string> Reports() {
        const std::lock_guard lock(mutex_);
        return reports_;
    }
    bool Reported(const std::string& report) {
        return support::Eventually([&] { return Reports() == std::vector<std::string>{report}; });
    }

    const support::TempFolder folder_;
    OwnerConfig config_;
    std::mutex mutex_;
    std::vector<std::string> reports_;  // and deferred answers
    bool mayDefer_ = false;
    std::unique_ptr<ItemTable> table_;
};

TEST_F(ItemTableTest, TellsWhatARunHasMeasured) {
    EXPECT_EQ(Ask("now", "a=1"), "warn: OK a=1") << "text is no performance data";
    EXPECT_EQ(Ask("measure", "a=1 b=2"), "success: OK");
    EXPECT_EQ(Ask("measure", "a=3"), "success: OK");
    EXPECT_EQ(Reports(), (std::vector<std::string>{"measure measured a b", "measure measured a"}));
}

TEST_F(ItemTableTest, TellsOnceThatARunHasMeasuredNothingAnyMore) {
    EXPECT_EQ(Ask("measure", "a=1"), "success: OK");
    EXPECT_EQ(Ask("measure"), "success: OK");
    EXPECT_EQ(Ask("measure"), "success: OK");
    EXPECT_EQ(Reports(), (std::vector<std::string>{"measure measured a", "measure measured"}));
}

TEST_F(ItemTableTest, TellsWhatWasMeasuredBeforeItReports) {
    EXPECT_EQ(Ask("measure_later"), "running: ");
    EXPECT_TRUE(support::Eventually([&] {
        return Reports() == std::vector<std::string>{"measure_later measured a", "measure_later: success: OK"};
    }));
}

TEST_F(ItemTableTest, AnswerASynchronousRunWithTheResult) {
    EXPECT_EQ(Ask("now", "deep"), "warn: OK deep");
    EXPECT_TRUE(Reports().empty());
}

TEST_F(ItemTableTest, AnswerAnAsynchronousRunWithRunningAndReportItLater) {
    EXPECT_EQ(Ask("later"), "running: ");
    EXPECT_TRUE(Reported("later: success: LATER"));
}

TEST_F(ItemTableTest, CanRunAgainOnceReported) {
    EXPECT_EQ(Ask("later"), "running: ");
    ASSERT_TRUE(Reported("later: success: LATER"));
    EXPECT_EQ(Ask("later"), "running: ");
    EXPECT_TRUE(support::Eventually([this] { return Reports().size() == 2; }));
}

TEST_F(ItemTableTest, LetASecondRequestJoinTheRun) {
    EXPECT_EQ(Ask("long"), "running: ");
    ASSERT_TRUE(Started());
    EXPECT_EQ(Ask("long"), "running: ");
    EXPECT_EQ(Ask("long", "stop"), "success: stopping");
    EXPECT_TRUE(Reported("long: fail: stopped"));
    EXPECT_EQ(support::Contents(Log()), "start\n");
}

// A server that has started anew takes a report before its answer for nothing.
TEST_F(ItemTableTest, NoReportFollowsTheAnswerToAJoiningRequestAtOnce) {
    constexpr auto kSettle = 500ms;
    Make(1, kSettle);
    EXPECT_EQ(Ask("ends"), "running: ");
    std::this_thread::sleep_for(kSettle);  // the first answer was handled long ago
    const auto joined = std::chrono::steady_clock::now();
    EXPECT_EQ(Ask("ends"), "running: ");
    std::ofstream(Log()).close();
    ASSERT_TRUE(Reported("ends: success: OVER"));
    EXPECT_GE(std::chrono::steady_clock::now(), joined + kSettle);
}

TEST_F(ItemTableTest, StopOnlyWhatRuns) {
    EXPECT_EQ(Ask("long", "stop"), "fail: not running");
    EXPECT_EQ(Ask("now", "stop"), "fail: not running");
    EXPECT_TRUE(Reports().empty());
}

TEST_F(ItemTableTest, ThatAreSynchronousDoNotWaitForAFreePlace) {
    EXPECT_EQ(Ask("long"), "running: ");
    ASSERT_TRUE(Started());
    EXPECT_EQ(Ask("now"), "warn: OK");
    EXPECT_TRUE(Reports().empty());
}

TEST_F(ItemTableTest, MustBeKnown) {
    EXPECT_EQ(Ask("nosuch"), "");
}

TEST_F(ItemTableTest, AreReportedAndThenRefusedWhenTheOwnerEnds) {
    EXPECT_EQ(Ask("long"), "running: ");
    table_->Shutdown();
    EXPECT_EQ(Reports(), std::vector<std::string>{"long: fail: stopped"});
    EXPECT_EQ(Ask("long"), "fail: the owner is ending");
    EXPECT_EQ(Ask("long"), "fail: the owner is ending") << "it has not begun before";
    EXPECT_EQ(Ask("now"), "fail: the owner is ending");
}

TEST_F(ItemTableTest, AnswerALongSynchronousRunLaterAndOthersMeanwhile) {
    Make(2);
    mayDefer_ = true;
    EXPECT_EQ(Ask("hang"), ": ");
    mayDefer_ = false;
    EXPECT_EQ(Ask("now"), "warn: OK");
    ASSERT_TRUE(Started());
    EXPECT_TRUE(Reports().empty());
    EXPECT_EQ(Ask("hang", "stop"), "success: stopping");
    EXPECT_TRUE(Reported("hang: fail: stopped"));
    EXPECT_EQ(Ask("hang", "stop"), "fail: not running");
}

TEST_F(ItemTableTest, RunTheSynchronousRequestsForOneItemOneAfterTheOther) {
    Make(2);
    mayDefer_ = true;
    EXPECT_EQ(Ask("hang"), ": ");
    EXPECT_EQ(Ask("hang"), ": ");
    ASSERT_TRUE(Started());
    EXPECT_EQ(Ask("hang", "stop"), "success: stopping");
    EXPECT_TRUE(Started("start\nstart\n"));
    EXPECT_EQ(Reports(), std::vector<std::string>{"hang: fail: stopped"});
    EXPECT_EQ(Ask("hang", "stop"), "success: stopping");
    EXPECT_TRUE(support::Eventually([this] { return Reports().size() == 2; }));
}

TEST_F(ItemTableTest, RunNoMoreLongSynchronousItemsThanMaxParallel) {
    mayDefer_ = true;
    EXPECT_EQ(Ask("hang"), ": ");
    EXPECT_EQ(Ask("now", "first"), ": ");
    EXPECT_EQ(Ask("now", "second"), ": ");
    ASSERT_TRUE(Started());
    EXPECT_TRUE(Reports().empty());
    EXPECT_EQ(Ask("hang", "stop"), "success: stopping");
    EXPECT_TRUE(support::Eventually([this] { return Reports().size() == 3; }));
    EXPECT_EQ(Reports(),
              (std::vector<std::string>{"hang: fail: stopped", "now: warn: OK first", "now: warn: OK second"}));
    mayDefer_ = false;
    EXPECT_EQ(Ask("now"), "warn: OK");
}

TEST_F(ItemTableTest, AreWaitedForWhereTheirAnswerCannotBeDeferred) {
    EXPECT_EQ(Ask("kept"), "success: OVER");
    EXPECT_EQ(Ask("kept", "stop"), "fail: not running");
}

TEST_F(ItemTableTest, RefuseARequestThatWouldHaveToWaitButCannotBeDeferred) {
    mayDefer_ = true;
    EXPECT_EQ(Ask("hang"), ": ");
    mayDefer_ = false;
    EXPECT_EQ(Ask("now"), "fail: too many requests wait");
}

TEST_F(ItemTableTest, AreAllAnsweredWhenTheOwnerEnds) {
    mayDefer_ = true;
    EXPECT_EQ(Ask("hang"), ": ");
    EXPECT_EQ(Ask("hang"), ": ");
    EXPECT_EQ(Ask(kLongest), ": ");
    ASSERT_TRUE(Started());
    table_->Shutdown();
    EXPECT_EQ(Reports(), (std::vector<std::string>{"hang: fail: stopped", "hang: fail: the owner is ending",
                                                   kLongest + std::string(": fail: the owner is ending")}));
}

TEST_F(ItemTableTest, AnswerASynchronousRunThatTheOwnersEndCutsShort) {
    auto answer = std::async(std::launch::async, [this] { return Ask("hang"); });
    ASSERT_TRUE(Started());
    table_->Shutdown();
    EXPECT_EQ(answer.get(), "fail: stopped");
}

}  // namespace
