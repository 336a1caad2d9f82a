// What is to be sent: from the history, from memory, and from both where the history has holes.
#include "mqtt/backlog.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "../history/history_test.h"

using namespace ominspect;
using namespace ominspect::gateway;
using mqtt::Backlog;

namespace {

std::vector<std::uint64_t> SeqsAfter(Backlog& backlog, std::uint64_t seq, std::size_t limit = 1000) {
    std::vector<std::uint64_t> seqs;
    for (const auto& row : backlog.After(seq, limit)) {
        seqs.push_back(row.seq);
    }
    return seqs;
}

void Tell(Backlog& backlog, std::uint64_t first, std::uint64_t last) {
    for (auto seq = first; seq <= last; ++seq) {
        backlog.Tell(support::ResultOf(seq, "clock", "ok"));
    }
}

void Keep(Store& store, std::uint64_t first, std::uint64_t last) {
    for (auto seq = first; seq <= last; ++seq) {
        const Event event = support::ResultOf(seq, "clock", "ok");
        ASSERT_FALSE(store.Write({&event, 1}, event.time));
    }
}

std::vector<std::uint64_t> Numbers(std::uint64_t first, std::uint64_t last) {
    std::vector<std::uint64_t> numbers;
    for (auto number = first; number <= last; ++number) {
        numbers.push_back(number);
    }
    return numbers;
}

TEST(MqttBacklog, OlderEventsComeFromTheHistoryInOrder) {
    const support::TempFolder folder;
    const auto store = support::OpenStore(folder / "h.db");
    Keep(*store, 1, 10);
    Backlog backlog(folder / "h.db");
    EXPECT_EQ(SeqsAfter(backlog, 0), Numbers(1, 10));
    EXPECT_EQ(SeqsAfter(backlog, 4, 3), Numbers(5, 7));
    EXPECT_EQ(SeqsAfter(backlog, 10), Numbers(1, 0));
    Keep(*store, 11, 300);
    Tell(backlog, 11, 300);
    EXPECT_EQ(SeqsAfter(backlog, 3), Numbers(4, 300));
    EXPECT_EQ(SeqsAfter(backlog, 50), Numbers(51, 300))
        << "what memory has no place for any more is still in the history";
    EXPECT_EQ(SeqsAfter(backlog, 290), Numbers(291, 300));
}

TEST(MqttBacklog, WithoutAHistoryTheLatestAreThere) {
    Backlog backlog("");
    EXPECT_EQ(SeqsAfter(backlog, 0), Numbers(1, 0));
    Tell(backlog, 1000, 1003);
    EXPECT_EQ(SeqsAfter(backlog, 0), Numbers(1000, 1003));
    EXPECT_EQ(SeqsAfter(backlog, 1001), Numbers(1002, 1003));
    Tell(backlog, 1004, 1200);
    EXPECT_EQ(SeqsAfter(backlog, 1001), Numbers(1073, 1200)) << "as many as memory has place for";
}

TEST(MqttBacklog, WhatCouldNotBeKeptComesFromMemoryInItsPlace) {
    const support::TempFolder folder;
    const auto store = support::OpenStore(folder / "h.db");
    Keep(*store, 1, 5);
    Backlog backlog(folder / "h.db");
    Tell(backlog, 4, 9);
    Keep(*store, 10, 12);
    Tell(backlog, 10, 12);
    EXPECT_EQ(SeqsAfter(backlog, 0), Numbers(1, 12));
    EXPECT_EQ(SeqsAfter(backlog, 0, 7), Numbers(1, 7));
    EXPECT_EQ(SeqsAfter(backlog, 2, 2), Numbers(3, 4));
}

TEST(MqttBacklog, PassingEventsCountForNothing) {
    Backlog backlog("");
    Event event;
    event.kind = EventKind::kBegan;
    event.item = "clock";
    backlog.Tell(event);
    EXPECT_TRUE(backlog.After(0, 10).empty());
}

TEST(MqttBacklog, AHistoryThatCannotBeReadIsNoneForNow) {
    const support::TempFolder folder;
    support::WriteFile(folder / "h.db", "no database");
    Backlog backlog(folder / "h.db");
    Tell(backlog, 7, 8);
    EXPECT_EQ(SeqsAfter(backlog, 0), Numbers(7, 8));
}

}  // namespace
