// Whose result is whose: the inbox without a bus.
#include "inbox.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <optional>
#include <stop_token>
#include <string>

#include <unistd.h>

#include "support/eventually.h"
#include "support/process_state.h"

using namespace ominspect::client;

namespace {

constexpr auto kRun = RequestKind::kRun;
constexpr auto kCommand = RequestKind::kCommand;

class InboxTest : public testing::Test {
protected:
    static ItemResult Running(const std::string& text) { return {"item", "running", text}; }
    static ItemResult Success(const std::string& text) { return {"item", "success", text}; }

    // What has come: "status/text", an error's word, or "nothing".
    std::string Take(const Address& address, const Limit& limit = std::chrono::seconds(60),
                     Limit::Clock::time_point deadline = Limit::Clock::now()) {
        const auto taken = inbox_.TakeResult(address, life_, limit, deadline);
        if (!taken) {
            return ErrorWord(taken.Failure().code);
        }
        return *taken ? (*taken)->status + "/" + (*taken)->text : "nothing";
    }

    std::string TakeRecord(std::uint32_t taskId, const Limit& limit = std::chrono::seconds(60),
                           Limit::Clock::time_point deadline = Limit::Clock::now()) {
        const auto taken = inbox_.TakeRecord(taskId, life_, limit, deadline);
        if (!taken) {
            return ErrorWord(taken.Failure().code);
        }
        return *taken ? std::to_string((*taken)->taskId) : "nothing";
    }

    // What a thread gets that has fallen asleep over `take` when the news comes.
    static std::string Woken(const std::function<std::string(const Limit&)>& take, const std::function<void()>& news) {
        std::atomic<pid_t> thread{0};
        std::stop_source giveUp;
        auto taken = std::async(std::launch::async, [&] {
            thread = gettid();
            return take({std::chrono::hours(1), giveUp.get_token()});
        });
        EXPECT_TRUE(support::Eventually([&] { return thread != 0 && support::StateOf(thread) == 'S'; }));
        news();
        EXPECT_TRUE(
            support::Eventually([&] { return taken.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
        giveUp.request_stop();
        return taken.get();
    }

    std::string WokenForResult(const std::function<void()>& news) {
        return Woken([this](const Limit& limit) { return Take({0, "item"}, limit, limit.Deadline()); }, news);
    }

    Inbox inbox_;
    std::uint64_t life_ = inbox_.ServerLife();
};

TEST_F(InboxTest, KeepsTheResultsOfARequestInTheirOrder) {
    ASSERT_EQ(inbox_.Expect("item", kRun), 0U);
    EXPECT_EQ(Take({0, "item"}), "nothing");
    inbox_.Put({0, "item"}, Running("1"));
    inbox_.Put({0, "item"}, Success("2"));
    EXPECT_EQ(Take({0, "item"}), "running/1");
    EXPECT_EQ(Take({0, "item"}), "success/2");
    EXPECT_EQ(Take({0, "item"}), "nothing");
}

TEST_F(InboxTest, DropsWhatNobodyExpects) {
    inbox_.Put({0, "item"}, Success("early"));
    ASSERT_EQ(inbox_.Expect("item", kRun), 0U);
    inbox_.Put({1, "item"}, Success("other lane"));
    inbox_.Put({0, "other"}, Success("other item"));
    EXPECT_EQ(Take({0, "item"}), "nothing");
}

TEST_F(InboxTest, GivesEachRequestForAnItemALaneUntilItsLastResult) {
    EXPECT_EQ(inbox_.Expect("item", kRun), 0U);
    EXPECT_EQ(inbox_.Expect("item", kRun), 1U);
    EXPECT_EQ(inbox_.Expect("other", kRun), 0U);
    inbox_.Forget({0, "item"});
    EXPECT_EQ(inbox_.Expect("item", kRun), 2U) << "a result is still owed to the first one";
    inbox_.Put({0, "item"}, Running(""));
    EXPECT_EQ(inbox_.Expect("item", kRun), 3U);
    inbox_.Put({0, "item"}, Success(""));
    EXPECT_EQ(inbox_.Expect("item", kRun), 0U);
    inbox_.Put({1, "item"}, Success(""));
    EXPECT_EQ(inbox_.Expect("item", kRun), 4U) << "somebody still waits at the second one";
    inbox_.Forget({1, "item"});
    EXPECT_EQ(inbox_.Expect("item", kRun), 1U);
}

TEST_F(InboxTest, AMalformedResultIsTheLast) {
    ASSERT_EQ(inbox_.Expect("item", kRun), 0U);
    inbox_.Put({0, "item"}, Error{ErrorCode::kMalformedReply, "no record"});
    EXPECT_EQ(Take({0, "item"}), "malformed-reply");
    inbox_.Forget({0, "item"});
    EXPECT_EQ(inbox_.Expect("item", kRun), 0U);
}

TEST_F(InboxTest, TheOneResultOfACommandIsTheLastThoughItSaysRunning) {
    ASSERT_EQ(inbox_.Expect("item", kCommand), 0U);
    inbox_.Forget({0, "item"});
    inbox_.Put({0, "item"}, Running(""));
    EXPECT_EQ(inbox_.Expect("item", kCommand), 0U);
}

TEST_F(InboxTest, AWithdrawnRequestLeavesNothing) {
    ASSERT_EQ(inbox_.Expect("item", kRun), 0U);
    inbox_.Withdraw({0, "item"});
    EXPECT_EQ(inbox_.Expect("item", kRun), 0U);
}

TEST_F(InboxTest, TakesTheLaneThatWasForgottenFirstWhenNoneIsFree) {
    for (std::size_t lane = 0; lane < 16; ++lane) {
        ASSERT_EQ(inbox_.Expect("item", kRun), lane);
    }
    EXPECT_EQ(inbox_.Expect("item", kRun), std::nullopt);
    inbox_.Forget({9, "item"});
    inbox_.Forget({4, "item"});
    EXPECT_EQ(inbox_.Expect("item", kRun), 4U) << "the older request";
    EXPECT_EQ(inbox_.Expect("item", kRun), 9U);
    EXPECT_EQ(inbox_.Expect("item", kRun), std::nullopt);
    inbox_.Put({4, "item"}, Success("new"));
    EXPECT_EQ(Take({4, "item"}), "success/new");
}

TEST_F(InboxTest, ARunIsOnesOwnWhenItsBeginningWasToldBeforeItsFirstResult) {
    ASSERT_EQ(inbox_.Expect("item", kRun), 0U);
    EXPECT_EQ(inbox_.Origin({0, "item"}), RunOrigin::kUnknown);
    inbox_.RunBegan({0, "other"});
    inbox_.RunBegan({1, "item"});
    EXPECT_EQ(inbox_.Origin({0, "item"}), RunOrigin::kUnknown);
    inbox_.RunBegan({0, "item"});
    EXPECT_EQ(inbox_.Origin({0, "item"}), RunOrigin::kOwn);
    inbox_.Put({0, "item"}, Running(""));
    EXPECT_EQ(inbox_.Origin({0, "item"}), RunOrigin::kOwn);
}

TEST_F(InboxTest, ARunIsAnothersWhenItsBeginningWasNotTold) {
    ASSERT_EQ(inbox_.Expect("item", kRun), 0U);
    inbox_.Put({0, "item"}, Running(""));
    EXPECT_EQ(inbox_.Origin({0, "item"}), RunOrigin::kJoined);
    inbox_.RunBegan({0, "item"});
    inbox_.Put({0, "item"}, Success(""));
    EXPECT_EQ(inbox_.Origin({0, "item"}), RunOrigin::kJoined);
}

TEST_F(InboxTest, AnUnknownItemAndACommandHaveNoBeginning) {
    ASSERT_EQ(inbox_.Expect("item", kRun), 0U);
    inbox_.Put({0, "item"}, ItemResult{"item", "fail", "no support"});
    EXPECT_EQ(inbox_.Origin({0, "item"}), RunOrigin::kOwn);
    ASSERT_EQ(inbox_.Expect("item", kCommand), 1U);
    inbox_.Put({1, "item"}, Running(""));
    EXPECT_EQ(inbox_.Origin({1, "item"}), RunOrigin::kOwn);
    EXPECT_EQ(inbox_.Origin({7, "item"}), RunOrigin::kUnknown);
}

TEST_F(InboxTest, KeepsTheNewestThousandResults) {
    ASSERT_EQ(inbox_.Expect("item", kRun), 0U);
    for (int i = 0; i < 1025; ++i) {
        inbox_.Put({0, "item"}, Running(std::to_string(i)));
    }
    EXPECT_EQ(Take({0, "item"}), "running/1");
}

TEST_F(InboxTest, ARestartEndsEveryWaitAndFreesTheForgottenLanes) {
    ASSERT_EQ(inbox_.Expect("item", kRun), 0U);
    ASSERT_EQ(inbox_.Expect("item", kRun), 1U);
    inbox_.Forget({0, "item"});
    inbox_.Put({1, "item"}, Running("before"));
    inbox_.ServerRestarted();
    EXPECT_EQ(Take({1, "item"}), "running/before") << "what has come is given all the same";
    EXPECT_EQ(Take({1, "item"}), "server-absent");
    EXPECT_EQ(TakeRecord(17), "server-absent");
    EXPECT_NE(inbox_.ServerLife(), life_);
    EXPECT_EQ(inbox_.Expect("item", kRun), 0U);
    inbox_.Forget({1, "item"});
    EXPECT_EQ(inbox_.Expect("item", kRun), 1U);
}

TEST_F(InboxTest, ALostBusAndACancellationEndTheWait) {
    ASSERT_EQ(inbox_.Expect("item", kRun), 0U);
    std::stop_source source;
    source.request_stop();
    EXPECT_EQ(Take({0, "item"}, {std::chrono::seconds(60), source.get_token()}), "cancelled");
    inbox_.BusLost();
    EXPECT_EQ(Take({0, "item"}), "bus-unreachable");
}

TEST_F(InboxTest, EveryNewsWakesTheThreadThatWaits) {
    ASSERT_EQ(inbox_.Expect("item", kRun), 0U);
    EXPECT_EQ(WokenForResult([this] { inbox_.Put({0, "item"}, Success("here")); }), "success/here");
    EXPECT_EQ(Woken([this](const Limit& limit) { return TakeRecord(17, limit, limit.Deadline()); },
                    [this] {
                        inbox_.Put(17, GroupRecord{17, {}});
                    }),
              "17");
    EXPECT_EQ(WokenForResult([this] { inbox_.ServerRestarted(); }), "server-absent");
    life_ = inbox_.ServerLife();
    EXPECT_EQ(WokenForResult([this] { inbox_.BusLost(); }), "bus-unreachable");
}

TEST_F(InboxTest, KeepsTheNewestSixteenRecordsUntilTheyAreAskedFor) {
    for (std::uint32_t taskId = 100; taskId < 117; ++taskId) {
        inbox_.Put(taskId, GroupRecord{taskId, {}});
    }
    EXPECT_EQ(TakeRecord(100), "nothing");
    EXPECT_EQ(TakeRecord(101), "101");
    EXPECT_EQ(TakeRecord(116), "116");
    EXPECT_EQ(TakeRecord(116), "nothing");
    inbox_.Put(200, Error{ErrorCode::kMalformedReply, "no record"});
    EXPECT_EQ(TakeRecord(200), "malformed-reply");
}

}  // namespace
