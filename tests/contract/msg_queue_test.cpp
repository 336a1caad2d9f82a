// Queues: order, bounds, and what is lost.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <numeric>
#include <string>
#include <vector>

#include "bus_test.h"
#include "thread_starter.h"

namespace {

using support::AddTask;
using support::Answer;
using support::Ask;
using support::Envelope;
using support::Gate;
using support::Inbox;
using support::Order;
using support::Peer;
using support::Post;

// `count` ids from `first` on.
std::vector<uint32_t> IdsFrom(uint32_t first, size_t count) {
    std::vector<uint32_t> ids(count);
    std::iota(ids.begin(), ids.end(), first);
    return ids;
}

class OsMsgQueueTest : public support::BusTest {
protected:
    void SetUp() override {
        BusTest::SetUp();
        OsMsgRegLogFunc([](const char*) {});  // lost messages are logged
    }

    void TearDown() override {
        BusTest::TearDown();
        OsMsgRegLogFunc(nullptr);
    }

    // A task with a queue of 4 whose handler stands before the gate with its first message, id 100.
    void AddBusyTask() {
        AddTask(
            "busy",
            [inbox = inbox_, gate = gate_](const TagMsgBlock& message) {
                inbox.Put(message);
                gate.Pass();
                if (message.msgType == 1) {
                    Answer(message);
                }
                return 0U;
            },
            4);
        Post("tester", "busy", 100);
        ASSERT_TRUE(gate_.Reached());
    }

    Inbox inbox_;
    Gate gate_;
};

// What the peer's task "collect" got so far.
std::vector<uint32_t> Collected(const char* peer) {
    const std::string bytes = Ask(Envelope(peer, "collect", support::kReport)).data;
    std::vector<uint32_t> ids(bytes.size() / sizeof(uint32_t));
    std::memcpy(ids.data(), bytes.data(), ids.size() * sizeof(uint32_t));
    return ids;
}

}  // namespace

TEST_F(OsMsgQueueTest, MessagesOfOneSenderStayInOrder) {
    const Peer peer("peer");
    AddTask("task", inbox_.Keep(), 1200);
    const auto relayed = support::Relay("peer", Order::Kind::kPost, Envelope("tester", "task", 1), 1000);
    EXPECT_EQ(relayed.outcome.good, 1000U);
    ASSERT_TRUE(inbox_.Await(1000));
    EXPECT_EQ(inbox_.Ids(), IdsFrom(1, 1000));
    EXPECT_EQ(OsMsgDroppedCount("task"), 0U);
}

TEST_F(OsMsgQueueTest, SynchronousAndAsynchronousMessagesStayInOrder) {
    AddTask("task", [inbox = inbox_](const TagMsgBlock& message) {
        inbox.Put(message);
        if (message.msgType == 1) {
            Answer(message);
        }
        return 0U;
    });
    for (uint32_t id = 1; id <= 20; id += 2) {
        Post("tester", "task", id);
        EXPECT_EQ(Ask(Envelope("tester", "task", id + 1)).result, 0U);
    }
    EXPECT_EQ(inbox_.Ids(), IdsFrom(1, 20));
}

TEST_F(OsMsgQueueTest, WhatDoesNotFitIsLostAndCounted) {
    AddBusyTask();
    for (uint32_t id = 101; id <= 107; ++id) {
        Post("tester", "busy", id);
    }
    EXPECT_TRUE(support::WaitFor([] { return OsMsgDroppedCount("busy") == 3; }));
    gate_.Open();
    ASSERT_TRUE(inbox_.Await(5));
    Post("tester", "busy", 108);
    ASSERT_TRUE(inbox_.Await(6));
    EXPECT_EQ(inbox_.Ids(), (std::vector<uint32_t>{100, 101, 102, 103, 104, 108}));
    EXPECT_EQ(OsMsgDroppedCount("busy"), 3U);
}

TEST_F(OsMsgQueueTest, TheLastEighthIsForThoseOfWhomNothingWaits) {
    const Peer peer("peer");
    AddTask(
        "shared",
        [inbox = inbox_, gate = gate_](const TagMsgBlock& message) {
            inbox.Put(message);
            gate.Pass();
            return 0U;
        },
        16);
    Post("tester", "shared", 100);
    ASSERT_TRUE(gate_.Reached());
    for (uint32_t id = 101; id <= 116; ++id) {
        Post("tester", "shared", id);
    }
    EXPECT_TRUE(support::WaitFor([] { return OsMsgDroppedCount("shared") == 2; }));
    const auto relayed = support::Relay("peer", Order::Kind::kPost, Envelope("tester", "shared", 200), 2);
    EXPECT_EQ(relayed.outcome.good, 2U);
    EXPECT_TRUE(support::WaitFor([] { return OsMsgDroppedCount("shared") == 3; }));
    gate_.Open();
    ASSERT_TRUE(inbox_.Await(16));
    const std::vector<uint32_t> ids = inbox_.Ids();
    EXPECT_EQ(std::count(ids.begin(), ids.end(), 200U), 1);
}

TEST_F(OsMsgQueueTest, ASynchronousSenderIsToldAtOnceThatItIsFull) {
    AddBusyTask();
    for (uint32_t id = 101; id <= 104; ++id) {
        Post("tester", "busy", id);
    }
    EXPECT_EQ(Ask(Envelope("tester", "busy", 105)).result, 0x8002000cU);
    EXPECT_EQ(OsMsgDroppedCount("busy"), 0U);  // its sender knows: it is not lost
    gate_.Open();
    ASSERT_TRUE(inbox_.Await(5));
    EXPECT_EQ(Ask(Envelope("tester", "busy", 106)).result, 0U);
    EXPECT_EQ(inbox_.Ids(), (std::vector<uint32_t>{100, 101, 102, 103, 104, 106}));
}

TEST_F(OsMsgQueueTest, SynchronousMessagesWaitInItToo) {
    AddBusyTask();
    std::atomic<int> answered{0};
    std::atomic<int> refused{0};
    for (int i = 0; i < 5; ++i) {
        support::StartThread([&] {
            const uint32_t result = Ask(Envelope("tester", "busy", 101)).result;
            EXPECT_TRUE(result == 0 || result == 0x8002000c);
            ++(result == 0 ? answered : refused);
        });
    }
    EXPECT_TRUE(support::WaitFor([&refused] { return refused == 1; }));
    EXPECT_EQ(answered, 0);
    gate_.Open();
    EXPECT_TRUE(support::WaitFor([&answered] { return answered == 4; }));
    EXPECT_EQ(refused, 1);
}

TEST_F(OsMsgQueueTest, AnotherProcesssQueueIsBoundedLikewise) {
    const Peer peer("peer");
    AddTask("gate", [inbox = inbox_, gate = gate_](const TagMsgBlock& message) {
        inbox.Put(message);
        gate.Pass();
        Answer(message);
        return 0U;
    });
    Post("peer", "collect", support::kVisitGate);
    ASSERT_TRUE(gate_.Reached());
    for (uint32_t id = 1; id <= 6; ++id) {
        Post("peer", "collect", id);
    }
    EXPECT_EQ(Ask(Envelope("peer", "collect", 7)).result, 0x8002000cU);
    EXPECT_EQ(Ask("peer", "echo", "x").data, "x");
    gate_.Open();
    EXPECT_TRUE(support::WaitFor([] {
        const TagMsgBlock report = Envelope("peer", "collect", support::kReport);
        return Ask(report).result == OS_MSG_OK;
    }));
    EXPECT_EQ(Collected("peer"), (std::vector<uint32_t>{support::kVisitGate, 1, 2, 3, 4}));
}

TEST_F(OsMsgQueueTest, ABusyTaskDoesNotHoldUpTheOthers) {
    AddBusyTask();
    AddTask("free", [](const TagMsgBlock& message) {
        Answer(message, "free");
        return 0U;
    });
    EXPECT_EQ(Ask("tester", "free").data, "free");
    const Peer peer("peer");
    EXPECT_EQ(support::Relay("peer", Order::Kind::kAsk, Envelope("tester", "free")).data, "free");
    gate_.Open();
}

TEST_F(OsMsgQueueTest, LossesAreCountedTaskByTask) {
    AddBusyTask();
    AddTask("other", inbox_.Keep(), 1);
    for (uint32_t id = 101; id <= 105; ++id) {
        Post("tester", "busy", id);
    }
    EXPECT_TRUE(support::WaitFor([] { return OsMsgDroppedCount("busy") == 1; }));
    EXPECT_EQ(OsMsgDroppedCount("other"), 0U);
    EXPECT_EQ(OsMsgDroppedCount("unknown"), 0U);
    EXPECT_EQ(OsMsgDroppedCount(""), 0U);
    EXPECT_EQ(OsMsgDroppedCount(nullptr), 0U);
    gate_.Open();
    EXPECT_TRUE(inbox_.Await(5));
}

TEST_F(OsMsgQueueTest, LostEventsAreCountedToo) {
    const Peer peer("peer");
    AddBusyTask();
    const OsMsgSubscription subscription{8, 0, "peer", "relay", "busy"};
    ASSERT_EQ(OsMsgSubscribeEvent(&subscription, 1, 0), 0U);
    TagMsgBlock event{};
    event.msgId = 8;
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(support::Relay("peer", Order::Kind::kBroadcast, event).outcome.result, 0U);
    }
    EXPECT_TRUE(support::WaitFor([] { return OsMsgDroppedCount("busy") == 2; }));
    gate_.Open();
    EXPECT_TRUE(inbox_.Await(5));
}
