// The feed: numbers, order, and what is told when nobody can keep it.
#include "model/feed.h"

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "support/eventually.h"

using namespace ominspect::gateway;

namespace {

class FakeKeeper : public Keeper {
public:
    std::uint64_t LastSeq() override { return last; }
    void Keep(const Event& event) override {
        const std::lock_guard lock(mutex);
        kept.push_back(event.seq);
        open += 1;
    }
    void Settle(std::chrono::milliseconds) override {
        const std::lock_guard lock(mutex);
        open = 0;
    }

    std::mutex mutex;
    std::vector<std::uint64_t> kept;
    std::uint64_t last = 0;
    int open = 0;  // taken and not settled
};

Event Of(EventKind kind, const std::string& item = "") {
    Event event;
    event.kind = kind;
    event.item = item;
    return event;
}

std::string Told(const Event& event) {
    return std::string(WordOf(event.kind)) + " " + event.item + " " + std::to_string(event.seq);
}

TEST(Feed, NumbersWhatIsKeptAndTellsAllInOrderOnceItIsKept) {
    FakeKeeper keeper;
    keeper.last = 41;
    Feed feed(&keeper, 1000);
    std::vector<std::string> told;
    bool wasOpen = false;
    feed.Subscribe([&](const Event& event) {
        const std::lock_guard lock(keeper.mutex);
        wasOpen = wasOpen || keeper.open > 0;
        told.push_back(Told(event));
    });
    feed.Post(Of(EventKind::kBegan, "a"));
    feed.Post(Of(EventKind::kResult, "a"));
    feed.Post(Of(EventKind::kServer));
    feed.Start();
    feed.Stop();
    EXPECT_EQ(told, (std::vector<std::string>{"began a 0", "result a 42", "server  43"}));
    EXPECT_EQ(keeper.kept, (std::vector<std::uint64_t>{42, 43}));
    EXPECT_FALSE(wasOpen) << "told before it was kept";
    EXPECT_EQ(feed.ToldSeq(), 43U);
}

TEST(Feed, NumbersWithoutAKeeperToo) {
    Feed feed(nullptr, 1000);
    std::vector<std::string> told;
    feed.Subscribe([&](const Event& event) { told.push_back(Told(event)); });
    feed.Start();
    feed.Post(Of(EventKind::kBusy));
    feed.Stop();
    EXPECT_EQ(told, std::vector<std::string>{"busy  1000"});
}

TEST(Feed, GoesOnAboveAKeeperThatComesLater) {
    FakeKeeper keeper;
    Feed feed(&keeper, 10);
    keeper.last = 500;
    std::vector<std::uint64_t> told;
    feed.Subscribe([&](const Event& event) { told.push_back(event.seq); });
    feed.Post(Of(EventKind::kBusy));
    feed.Start();
    feed.Stop();
    EXPECT_EQ(told, std::vector<std::uint64_t>{501});
}

TEST(Feed, WhatItCannotTakeIsAGap) {
    Feed feed(nullptr, 1);
    for (int i = 0; i < 16384 + 5; ++i) {
        feed.Post(Of(EventKind::kBusy));
    }
    EXPECT_EQ(feed.LostEvents(), 5U);
    std::mutex mutex;
    std::vector<std::string> told;
    int losses = 0;
    feed.Subscribe([&](const Event& event) {
        const std::lock_guard lock(mutex);
        told.push_back(event.text);
        losses += event.isLoss ? 1 : 0;
    });
    const auto count = [&] {
        const std::lock_guard lock(mutex);
        return told.size();
    };
    feed.Start();
    ASSERT_TRUE(support::Eventually([&] { return count() == 16384 + 1; })) << "nothing is posted after it";
    feed.Post(Of(EventKind::kBusy));
    feed.Stop();
    ASSERT_EQ(count(), 16384U + 2U);
    EXPECT_EQ(told[16384], "more events than the gateway could take");
    EXPECT_EQ(losses, 1);
}

TEST(Feed, AnEventWithoutMemoryIsAGapToo) {
    Feed feed(nullptr, 1);
    std::vector<std::string> told;
    feed.Subscribe([&](const Event& event) { told.push_back(event.text); });
    feed.Lose();
    feed.Post(Of(EventKind::kItems));
    feed.Start();
    feed.Stop();
    EXPECT_EQ(told, (std::vector<std::string>{"more events than the gateway could take", ""}));
    EXPECT_EQ(feed.LostEvents(), 1U);
}

TEST(Feed, ShowsThatItLives) {
    Feed feed(nullptr, 1);
    feed.Start();
    const auto before = feed.Rounds();
    feed.Wake();
    EXPECT_TRUE(support::Eventually([&] { return feed.Rounds() > before; }));
}

}  // namespace
