// Broadcast events, and the events of processes that appear.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "bus_test.h"

namespace {

using support::AddTask;
using support::Inbox;
using support::Order;
using support::Peer;
using support::Received;

constexpr uint32_t kRestart = 0x200002;

class OsMsgEventTest : public support::BusTest {
protected:
    void SetUp() override {
        BusTest::SetUp();
        AddTask("task", inbox_.Keep());
    }

    static uint32_t Subscribe(const char* proc, const char* task, uint32_t id, const char* receiver = "task") {
        OsMsgSubscription subscription{};
        subscription.eventId = id;
        std::strncpy(subscription.srcProcName, proc, 15);
        std::strncpy(subscription.srcTaskName, task, 15);
        std::strncpy(subscription.dstTaskName, receiver, 15);
        return OsMsgSubscribeEvent(&subscription, 1, 0);
    }

    // Lets the peer's task "relay" send events with ids from `id` on.
    static void Broadcast(const char* peer, uint32_t id, std::string_view data = {}, uint32_t count = 1) {
        const support::Relayed relayed =
            support::Relay(peer, Order::Kind::kBroadcast, support::Envelope("", "", id, data), count);
        EXPECT_EQ(relayed.outcome.good, count);
    }

    // A message that the peer sends after its events: once it is there, they are.
    void Finish(const char* peer, size_t expected) const {
        support::Relay(peer, Order::Kind::kPost, support::Envelope("tester", "task", 777));
        ASSERT_TRUE(inbox_.Await(expected + 1));
        EXPECT_EQ(inbox_.Ids().back(), 777U);
        EXPECT_EQ(inbox_.Count(), expected + 1);
    }

    Inbox inbox_;
};

}  // namespace

TEST_F(OsMsgEventTest, ArrivesAsAnAsynchronousMessage) {
    const Peer peer("peer");
    ASSERT_EQ(Subscribe("peer", "relay", 8), 0U);
    Broadcast("peer", 8, std::string("a\0b", 3));
    ASSERT_TRUE(inbox_.Await(1));
    const Received received = inbox_.All()[0];
    EXPECT_NE(received.envelope.msgType, 1U);
    EXPECT_EQ(received.envelope.msgId, 8U);
    EXPECT_EQ(received.envelope.uid, getuid());
    EXPECT_STREQ(received.envelope.srcProcName, "peer");
    EXPECT_STREQ(received.envelope.srcTaskName, "relay");
    EXPECT_STREQ(received.envelope.dstProcName, "tester");
    EXPECT_STREQ(received.envelope.dstTaskName, "task");
    EXPECT_STREQ(received.envelope.replyTaskName, "relay");
    EXPECT_EQ(received.payload, std::string("a\0b", 3));
}

TEST_F(OsMsgEventTest, MayBeEmptyOrOneMebibyte) {
    const Peer peer("peer");
    ASSERT_EQ(Subscribe("tester", "task", 8), 0U);
    const std::string mebibyte(1048576, 'x');
    const OsMsgEvent empty{"task", 8, 0, nullptr};
    const OsMsgEvent large{"task", 8, 1048576, mebibyte.data()};
    EXPECT_EQ(OsMsgBroadcastEvent(&empty, 1), 0U);
    EXPECT_EQ(OsMsgBroadcastEvent(&large, 1), 0U);
    ASSERT_TRUE(inbox_.Await(2));
    EXPECT_EQ(inbox_.All()[0].payload, "");
    EXPECT_EQ(inbox_.All()[1].payload, mebibyte);
}

TEST_F(OsMsgEventTest, OnlySubscribedIdsArrive) {
    const Peer peer("peer");
    ASSERT_EQ(Subscribe("peer", "relay", 9), 0U);
    Broadcast("peer", 8);
    Broadcast("peer", 9);
    Broadcast("peer", 10);
    Finish("peer", 1);
    EXPECT_EQ(inbox_.Ids()[0], 9U);
}

TEST_F(OsMsgEventTest, OnlySubscribedSourcesAreHeard) {
    const Peer peer("peer");
    const Peer other("other");
    ASSERT_EQ(Subscribe("peer", "relay", 8), 0U);
    ASSERT_EQ(Subscribe("other", "echo", 8), 0U);  // that task sends none
    Broadcast("other", 8);
    support::Relay("other", Order::Kind::kPost, support::Envelope("tester", "task", 776));
    ASSERT_TRUE(inbox_.Await(1));
    Broadcast("peer", 8);
    Finish("peer", 2);
    EXPECT_EQ(inbox_.Ids(), (std::vector<uint32_t>{776, 8, 777}));
    EXPECT_STREQ(inbox_.All()[1].envelope.srcProcName, "peer");
}

TEST_F(OsMsgEventTest, EverySubscriberHearsIt) {
    const Inbox second;
    AddTask("second", second.Keep());
    const Peer peer("peer");
    ASSERT_EQ(Subscribe("peer", "relay", 8), 0U);
    ASSERT_EQ(Subscribe("peer", "relay", 8, "second"), 0U);
    Broadcast("peer", 8, "x");
    ASSERT_TRUE(second.Await(1));
    EXPECT_STREQ(second.All()[0].envelope.dstTaskName, "second");
    EXPECT_EQ(second.All()[0].payload, "x");
    Finish("peer", 1);
}

TEST_F(OsMsgEventTest, SeveralSubscriptionsAreMadeAtOnce) {
    const Peer peer("peer");
    const OsMsgSubscription subscriptions[] = {{8, 0, "peer", "relay", "task"}, {9, 0, "peer", "relay", "task"}};
    ASSERT_EQ(OsMsgSubscribeEvent(subscriptions, 2, 0), 0U);
    Broadcast("peer", 8, {}, 3);
    Finish("peer", 2);
    EXPECT_EQ(inbox_.Ids(), (std::vector<uint32_t>{8, 9, 777}));
}

TEST_F(OsMsgEventTest, AProcessHearsItsOwnEvents) {
    ASSERT_EQ(Subscribe("tester", "task", 8), 0U);
    const OsMsgEvent event{"task", 8, 1, "x"};
    EXPECT_EQ(OsMsgBroadcastEvent(&event, 1), 0U);
    ASSERT_TRUE(inbox_.Await(1));
    EXPECT_STREQ(inbox_.All()[0].envelope.srcProcName, "tester");
}

TEST_F(OsMsgEventTest, EventsAndMessagesOfOneSenderStayInOrder) {
    const Peer peer("peer");
    ASSERT_EQ(Subscribe("peer", "relay", 2), 0U);
    ASSERT_EQ(Subscribe("peer", "relay", 4), 0U);
    for (uint32_t id = 1; id <= 4; id += 2) {
        support::Relay("peer", Order::Kind::kPost, support::Envelope("tester", "task", id));
        Broadcast("peer", id + 1);
    }
    Finish("peer", 4);
    EXPECT_EQ(inbox_.Ids(), (std::vector<uint32_t>{1, 2, 3, 4, 777}));
}

TEST_F(OsMsgEventTest, SubscribingMayPrecedeTheSource) {
    ASSERT_EQ(Subscribe("peer", "relay", 8), 0U);
    for (size_t i = 1; i <= 2; ++i) {
        const Peer peer("peer");
        Broadcast("peer", 8);
        ASSERT_TRUE(inbox_.Await(i));
        EXPECT_STREQ(inbox_.All().back().envelope.srcProcName, "peer");
    }
}

TEST_F(OsMsgEventTest, SubscriptionsEndWithTheAttachment) {
    const Peer peer("peer");
    ASSERT_EQ(Subscribe("peer", "relay", 8), 0U);
    OsProcDetach();
    ASSERT_EQ(OsProcAttach("tester"), 0U);
    AddTask("task", inbox_.Keep());
    Broadcast("peer", 8);
    Finish("peer", 0);
}

TEST_F(OsMsgEventTest, BadBroadcastsAreRefused) {
    const OsMsgEvent good{"task", 8, 0, nullptr};
    EXPECT_EQ(OsMsgBroadcastEvent(nullptr, 1), 0x80020002U);
    EXPECT_EQ(OsMsgBroadcastEvent(&good, 0), 0x80020002U);
    EXPECT_EQ(OsMsgBroadcastEvent(&good, 2), 0x80020002U);
    const OsMsgEvent nullData{"task", 8, 1, nullptr};
    EXPECT_EQ(OsMsgBroadcastEvent(&nullData, 1), 0x80020002U);
    const OsMsgEvent noTask{"", 8, 0, nullptr};
    EXPECT_EQ(OsMsgBroadcastEvent(&noTask, 1), 0x80020002U);
    OsMsgEvent longName = good;
    std::memset(longName.taskName, 'x', 16);
    EXPECT_EQ(OsMsgBroadcastEvent(&longName, 1), 0x80020002U);
    const OsMsgEvent unknownTask{"unknown", 8, 0, nullptr};
    EXPECT_EQ(OsMsgBroadcastEvent(&unknownTask, 1), 0x80020009U);
    const std::string tooLarge(1048577, 'x');
    const OsMsgEvent large{"task", 8, 1048577, tooLarge.data()};
    EXPECT_EQ(OsMsgBroadcastEvent(&large, 1), 0x8002000dU);
    EXPECT_EQ(OsMsgBroadcastEvent(&good, 1), 0U);
}

TEST_F(OsMsgEventTest, BadSubscriptionsAreRefused) {
    const OsMsgSubscription good{8, 0, "peer", "relay", "task"};
    EXPECT_EQ(OsMsgSubscribeEvent(nullptr, 1, 0), 0x80020002U);
    EXPECT_EQ(OsMsgSubscribeEvent(&good, 0, 0), 0x80020002U);
    EXPECT_EQ(OsMsgSubscribeEvent(&good, 1, 1), 0x80020002U);
    EXPECT_EQ(Subscribe("", "relay", 8), 0x80020002U);
    EXPECT_EQ(Subscribe("peer", "", 8), 0x80020002U);
    OsMsgSubscription longName = good;
    std::memset(longName.srcProcName, 'x', 16);
    EXPECT_EQ(OsMsgSubscribeEvent(&longName, 1, 0), 0x80020002U);
    EXPECT_EQ(Subscribe("peer", "relay", 8, "unknown"), 0x80020009U);
    EXPECT_EQ(OsMsgSubscribeEvent(&good, 1, 0), 0U);
}

TEST_F(OsMsgEventTest, RestartIsToldEachTimeTheProcessAppears) {
    ASSERT_EQ(Subscribe("peer", "", kRestart), 0U);
    for (size_t i = 1; i <= 3; ++i) {
        const Peer peer("peer");
        ASSERT_TRUE(inbox_.Await(i));
        const Received received = inbox_.All().back();
        EXPECT_NE(received.envelope.msgType, 1U);
        EXPECT_EQ(received.envelope.msgId, 0x200002U);
        EXPECT_EQ(received.envelope.uid, UINT32_MAX);
        EXPECT_STREQ(received.envelope.srcProcName, "peer");
        EXPECT_STREQ(received.envelope.dstProcName, "tester");
        EXPECT_STREQ(received.envelope.dstTaskName, "task");
        EXPECT_EQ(received.payload, "");
    }
    const Peer peer("peer");
    Finish("peer", 4);
}

TEST_F(OsMsgEventTest, RestartIsNotToldOfAProcessThatIsThere) {
    const Peer peer("peer");
    ASSERT_EQ(Subscribe("peer", "any", kRestart), 0U);
    Finish("peer", 0);
}

TEST_F(OsMsgEventTest, RestartIsToldOfSubscribedProcessesOnly) {
    ASSERT_EQ(Subscribe("peer", "peer", kRestart), 0U);
    const Peer other("other");
    Finish("other", 0);
    const Peer peer("peer");
    ASSERT_TRUE(inbox_.Await(2));
    EXPECT_STREQ(inbox_.All()[1].envelope.srcProcName, "peer");
}

TEST_F(OsMsgEventTest, RestartCannotBeFeigned) {
    const Peer peer("peer");
    const Peer other("other");
    ASSERT_EQ(Subscribe("peer", "relay", kRestart), 0U);
    support::Relay("peer", Order::Kind::kBroadcast, support::Envelope("", "", kRestart));
    support::Relay("other", Order::Kind::kBroadcast, support::Envelope("", "", kRestart));
    Finish("peer", 0);
}
