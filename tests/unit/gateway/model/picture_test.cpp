// The picture of the terminal: what events and answers make of it.
#include "model/picture.h"

#include <gtest/gtest.h>

#include <string>

using namespace ominspect;
using namespace ominspect::gateway;
using namespace std::chrono_literals;

namespace {

Event Of(EventKind kind, const std::string& item, const std::string& status, std::uint64_t seq = 0) {
    Event event;
    event.kind = kind;
    event.item = item;
    event.status = status;
    event.text = "text of " + std::to_string(seq);
    event.seq = seq;
    event.time = TimePoint(std::chrono::seconds(seq));
    event.begin = TimePoint(7s);
    return event;
}

client::Inventory Two() {
    client::Inventory inventory{{}, 1, {}};
    inventory.items.push_back({"conf", client::ConfiguredItem{"conf", "error", true}, {}});
    inventory.items.push_back({"own", std::nullopt, {client::ItemOwner{"owner", 0ms, true}}});
    return inventory;
}

class PictureTest : public testing::Test {
protected:
    ItemView View(const std::string& name) const {
        ItemView view;
        picture.Read([&](const State& state) {
            if (state.items.contains(name)) {
                view = state.items.at(name);
            }
        });
        return view;
    }
    std::string Order() const {
        std::string names;
        picture.Read([&](const State& state) {
            for (const std::string& name : state.order) {
                names += name + " ";
            }
        });
        return names;
    }

    Picture picture;
};

TEST_F(PictureTest, ItemsStandAsConfiguredAndThenByName) {
    picture.Apply(Of(EventKind::kBegan, "zoo", "running"));
    EXPECT_TRUE(picture.SetInventory(Two()));
    EXPECT_EQ(Order(), "conf own zoo ");
    picture.Apply(Of(EventKind::kBegan, "ape", "running"));
    EXPECT_EQ(Order(), "conf ape own zoo ");
    EXPECT_TRUE(View("conf").configuration);
    EXPECT_EQ(View("own").owners.at(0).process, "owner");
}

TEST_F(PictureTest, AnInventoryThatIsTheSameChangesNothing) {
    (void)picture.SetInventory(Two());
    const auto version = picture.Version();
    EXPECT_FALSE(picture.SetInventory(Two()));
    EXPECT_EQ(picture.Version(), version);
    client::Inventory other = Two();
    other.items[1].owners[0].isRegistered = false;
    EXPECT_TRUE(picture.SetInventory(other));
    other.items[1].owners.clear();
    EXPECT_TRUE(picture.SetInventory(other));
    EXPECT_TRUE(View("own").owners.empty());
    EXPECT_GT(picture.Version(), version);
}

TEST_F(PictureTest, ARunLeadsFromRunningToAResult) {
    (void)picture.SetInventory(Two());
    picture.Apply(Of(EventKind::kBegan, "own", "running"));
    EXPECT_EQ(View("own").state, ItemState::kRunning);
    EXPECT_EQ(View("own").runningSince, TimePoint(7s));
    EXPECT_FALSE(picture.SetState("own", client::ItemState::kIdleOrUnknown)) << "the answer is older than the event";
    picture.Apply(Of(EventKind::kResult, "own", "fail", 9));
    EXPECT_EQ(View("own").state, ItemState::kNotIdle);
    EXPECT_FALSE(View("own").runningSince);
    EXPECT_EQ(View("own").last->status, "fail");
    EXPECT_EQ(View("own").last->seq, 9U);
    picture.Apply(Of(EventKind::kResult, "own", "idle", 10));
    EXPECT_EQ(View("own").last->seq, 9U) << "a reset is no result";
}

TEST_F(PictureTest, StatesAreAskedForAfterEachThingThatHappens) {
    (void)picture.SetInventory(Two());
    EXPECT_EQ(picture.TakeUnclear(), "conf");
    EXPECT_EQ(picture.TakeUnclear(), "own");
    EXPECT_EQ(picture.TakeUnclear(), "");
    EXPECT_TRUE(picture.SetState("own", client::ItemState::kIdleOrUnknown));
    EXPECT_EQ(View("own").state, ItemState::kIdle);
    EXPECT_FALSE(picture.SetState("conf", client::ItemState::kIdleOrUnknown));
    EXPECT_EQ(View("conf").state, ItemState::kUnknown) << "nobody owns it";
    EXPECT_TRUE(picture.SetState("conf", client::ItemState::kNotIdle));
    picture.Apply(Of(EventKind::kResult, "own", "success", 1));
    EXPECT_EQ(picture.TakeUnclear(), "own");
    EXPECT_EQ(picture.TakeUnclear(), "");
    picture.SetUnclear("conf");
    EXPECT_EQ(picture.TakeUnclear(), "conf");
}

TEST_F(PictureTest, WhatIsNotIdleCanBeAskedForAgain) {
    (void)picture.SetInventory(Two());
    picture.Apply(Of(EventKind::kResult, "own", "success", 1));
    picture.Apply(Of(EventKind::kBegan, "conf", "running"));
    while (!picture.TakeUnclear().empty()) {
    }
    picture.SetHeldUnclear();
    EXPECT_EQ(picture.TakeUnclear(), "own");
    EXPECT_EQ(picture.TakeUnclear(), "");
    EXPECT_TRUE(picture.SetState("own", client::ItemState::kIdleOrUnknown));
    picture.SetHeldUnclear();
    EXPECT_EQ(picture.TakeUnclear(), "") << "it is idle";
}

TEST_F(PictureTest, LostEventsEndWhatWasSaidToRun) {
    (void)picture.SetInventory(Two());
    picture.Apply(Of(EventKind::kBegan, "own", "running"));
    while (!picture.TakeUnclear().empty()) {
    }
    const auto version = picture.Version();
    Event gap = Of(EventKind::kGap, "", "");
    picture.Apply(gap);
    EXPECT_EQ(View("own").state, ItemState::kRunning) << "only the history has this gap";
    gap.isLoss = true;
    picture.Apply(gap);
    EXPECT_GT(picture.Version(), version);
    EXPECT_EQ(View("own").state, ItemState::kNotIdle);
    EXPECT_FALSE(View("own").runningSince);
    EXPECT_EQ(picture.TakeUnclear(), "conf");
    EXPECT_EQ(picture.TakeUnclear(), "own");
    EXPECT_TRUE(picture.SetState("own", client::ItemState::kIdleOrUnknown));
    EXPECT_EQ(View("own").state, ItemState::kIdle);
}

TEST_F(PictureTest, NothingRunsInAnIdleServer) {
    (void)picture.SetInventory(Two());
    picture.Apply(Of(EventKind::kBusy, "", "busy", 1));
    picture.Apply(Of(EventKind::kBegan, "own", "running"));
    while (!picture.TakeUnclear().empty()) {
    }
    picture.Apply(Of(EventKind::kBusy, "", "idle", 2));
    EXPECT_EQ(View("own").state, ItemState::kNotIdle);
    EXPECT_FALSE(View("own").runningSince);
    EXPECT_EQ(picture.TakeUnclear(), "own");
    EXPECT_EQ(picture.TakeUnclear(), "");
}

TEST_F(PictureTest, WhetherTheServerIsBusyIsKnownFromItsNextChangeOn) {
    const auto isBusy = [this] {
        std::optional<bool> value;
        picture.Read([&](const State& state) { value = state.server.isBusy; });
        return value;
    };
    picture.Apply(Of(EventKind::kServer, "", "up", 1));
    EXPECT_EQ(isBusy(), std::nullopt);
    picture.Apply(Of(EventKind::kResult, "own", "success", 2));
    EXPECT_EQ(isBusy(), std::nullopt) << "another item may run";
    picture.Apply(Of(EventKind::kBegan, "own", "running"));
    EXPECT_EQ(isBusy(), true);
    picture.Apply(Of(EventKind::kBusy, "", "idle", 3));
    EXPECT_EQ(isBusy(), false);
    picture.Apply(Of(EventKind::kBusy, "", "busy", 4));
    EXPECT_EQ(isBusy(), true);
    Event gap = Of(EventKind::kGap, "", "");
    gap.isLoss = true;
    picture.Apply(gap);
    EXPECT_EQ(isBusy(), std::nullopt);
}

TEST_F(PictureTest, AServerThatLeavesTakesTheRunsWithIt) {
    (void)picture.SetInventory(Two());
    picture.Apply(Of(EventKind::kServer, "", "up", 1));
    picture.Apply(Of(EventKind::kBusy, "", "busy", 2));
    picture.Apply(Of(EventKind::kBegan, "own", "running"));
    picture.Apply(Of(EventKind::kServer, "", "away", 3));
    EXPECT_EQ(View("own").state, ItemState::kUnknown);
    picture.Read([](const State& state) {
        EXPECT_FALSE(state.server.isUp);
        EXPECT_FALSE(state.server.isBusy.has_value());
        EXPECT_EQ(state.server.restarts, 0U);
        EXPECT_EQ(state.server.since, TimePoint(3s));
    });
    picture.Apply(Of(EventKind::kServer, "", "up", 4));
    picture.Read([](const State& state) { EXPECT_EQ(state.server.restarts, 1U); });
}

TEST_F(PictureTest, AnOlderResultDoesNotTakeTheNewerOnesPlace) {
    picture.Apply(Of(EventKind::kResult, "own", "fail", 9));
    picture.SetLast("own", {"success", "", "", TimePoint(1s), {}, {}, 3});
    EXPECT_EQ(View("own").last->status, "fail");
    picture.SetLast("old", {"success", "", "", TimePoint(1s), {}, {}, 3});
    EXPECT_EQ(View("old").last->status, "success");
}

TEST_F(PictureTest, IsBounded) {
    for (int i = 0; i < 4096 + 10; ++i) {
        picture.Apply(Of(EventKind::kResult, "item" + std::to_string(i), "success", 1));
    }
    picture.Read([](const State& state) { EXPECT_EQ(state.items.size(), 4096U); });
}

}  // namespace
