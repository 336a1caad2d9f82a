// Replies: who may give them, when, and how often.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "bus_test.h"
#include "thread_starter.h"

namespace {

using support::AddTask;
using support::Answer;
using support::Ask;
using support::Envelope;
using support::Inbox;
using support::Order;
using support::Peer;
using support::WaitFor;

class OsMsgSynSendRespTest : public support::BusTest {
protected:
    // A task that defers every reply, and keeps the envelopes.
    static void AddDeferringTask(const Inbox& inbox) {
        AddTask("defer", [inbox](const TagMsgBlock& message) {
            EXPECT_EQ(OsMsgSynDeferResp(&message), OS_MSG_OK);
            inbox.Put(message);
            return 0U;
        });
    }

    // Asks task "defer" on a thread of its own; the reply's payload, once it is there.
    static std::shared_ptr<std::atomic<int>> AskDeferring(const std::string& expected) {
        auto right = std::make_shared<std::atomic<int>>(-1);
        support::StartThread([right, expected] { *right = Ask("tester", "defer").data == expected ? 1 : 0; });
        return right;
    }
};

uint32_t Reply(const TagMsgBlock& message) {
    return OsMsgSynSendResp(&message, "again", 5);
}

}  // namespace

TEST_F(OsMsgSynSendRespTest, OneIsGivenOnce) {
    AddTask("task", [](const TagMsgBlock& message) {
        Answer(message, "first");
        EXPECT_EQ(Reply(message), 0x8002000fU);
        EXPECT_EQ(Reply(message), 0x8002000fU);
        return 0U;
    });
    EXPECT_EQ(Ask("tester", "task").data, "first");
    EXPECT_EQ(Ask("tester", "task").data, "first");
}

TEST_F(OsMsgSynSendRespTest, NoneIsOwedForAnAsynchronousMessage) {
    const Inbox inbox;
    AddTask("task", [inbox](const TagMsgBlock& message) {
        EXPECT_EQ(Reply(message), 0x8002000fU);
        EXPECT_EQ(OsMsgSynDeferResp(&message), 0x8002000fU);
        TagMsgBlock forged = message;
        forged.msgType = 1;
        EXPECT_EQ(Reply(forged), 0x8002000fU);
        inbox.Put(message);
        return 0U;
    });
    support::Post("tester", "task");
    EXPECT_TRUE(inbox.Await(1));
}

TEST_F(OsMsgSynSendRespTest, NoneIsOwedForAMadeUpEnvelope) {
    TagMsgBlock madeUp = Envelope("tester", "task");
    madeUp.msgType = 1;
    EXPECT_EQ(Reply(madeUp), 0x8002000fU);
    EXPECT_EQ(OsMsgSynDeferResp(&madeUp), 0x8002000fU);
}

TEST_F(OsMsgSynSendRespTest, BadArgumentsAreRefusedAndTheReplyIsStillOwed) {
    EXPECT_EQ(OsMsgSynSendResp(nullptr, nullptr, 0), 0x80020002U);
    EXPECT_EQ(OsMsgSynDeferResp(nullptr), 0x80020002U);
    AddTask("task", [](const TagMsgBlock& message) {
        EXPECT_EQ(OsMsgSynSendResp(&message, nullptr, 1), 0x80020002U);
        EXPECT_EQ(OsMsgSynSendResp(&message, nullptr, 0), 0U);
        return 0U;
    });
    EXPECT_EQ(Ask("tester", "task").result, 0U);
}

TEST_F(OsMsgSynSendRespTest, AnotherThreadMayGiveItWhileTheHandlerRuns) {
    AddTask("task", [](const TagMsgBlock& message) {
        const auto answered = std::make_shared<std::atomic<bool>>(false);
        support::StartThread([copy = message, answered] {
            Answer(copy, "from elsewhere");
            *answered = true;
        });
        EXPECT_TRUE(WaitFor([&answered] { return answered->load(); }));
        EXPECT_EQ(Reply(message), 0x8002000fU);
        return 0U;
    });
    EXPECT_EQ(Ask("tester", "task").data, "from elsewhere");
}

TEST_F(OsMsgSynSendRespTest, OfManyThreadsOneGivesIt) {
    AddTask("task", [](const TagMsgBlock& message) {
        const auto good = std::make_shared<std::atomic<int>>(0);
        const auto tried = std::make_shared<std::atomic<int>>(0);
        for (int i = 0; i < 8; ++i) {
            support::StartThread([copy = message, good, tried] {
                *good += Reply(copy) == OS_MSG_OK ? 1 : 0;
                ++*tried;
            });
        }
        EXPECT_TRUE(WaitFor([&tried] { return *tried == 8; }));
        EXPECT_EQ(*good, 1);
        return 0U;
    });
    EXPECT_EQ(Ask("tester", "task").data, "again");
}

TEST_F(OsMsgSynSendRespTest, ADeferredOneIsGivenLater) {
    const Inbox inbox;
    AddDeferringTask(inbox);
    const auto right = AskDeferring("later");
    ASSERT_TRUE(inbox.Await(1));
    EXPECT_EQ(Ask("tester", "nothing").result, 0x80020009U);  // other messages pass meanwhile
    EXPECT_EQ(*right, -1);
    const TagMsgBlock envelope = inbox.All()[0].envelope;
    Answer(envelope, "later");
    EXPECT_TRUE(WaitFor([&right] { return *right == 1; }));
    EXPECT_EQ(Reply(envelope), 0x8002000fU);
}

TEST_F(OsMsgSynSendRespTest, WithoutDeferringItIsForgottenWithTheMessage) {
    const Inbox inbox;
    AddTask("task", inbox.Keep());
    EXPECT_EQ(Ask(Envelope("tester", "task"), support::kShort).result, 0x8002000bU);
    ASSERT_TRUE(inbox.Await(1));
    // The task has taken the next message: the handler has returned from the first.
    support::Post("tester", "task");
    ASSERT_TRUE(inbox.Await(2));
    EXPECT_EQ(Reply(inbox.All()[0].envelope), 0x8002000fU);
}

TEST_F(OsMsgSynSendRespTest, NoneIsDeferredOnceItIsGiven) {
    AddTask("task", [](const TagMsgBlock& message) {
        Answer(message, "reply");
        EXPECT_EQ(OsMsgSynDeferResp(&message), 0x8002000fU);
        return 0U;
    });
    EXPECT_EQ(Ask("tester", "task").data, "reply");
}

TEST_F(OsMsgSynSendRespTest, ForgottenOnesLeaveNothingBehind) {
    const Peer peer("peer");
    for (int i = 0; i < 3000; ++i) {
        ASSERT_EQ(Ask(Envelope("peer", "silent"), 0).result, 0x8002000bU);
        if (i % 32 == 31) {
            ASSERT_EQ(Ask("peer", "echo", "x").data, "x");  // lets the silent task keep up
        }
    }
    EXPECT_EQ(Ask("peer", "echo", "x").data, "x");
}

TEST_F(OsMsgSynSendRespTest, NobodyWaitsOnceTheSenderHasLeft) {
    Peer peer("peer");
    const Inbox inbox;
    AddDeferringTask(inbox);
    // The relay waits for this reply, so nobody can wait for the relay.
    TagMsgBlock question = Envelope("tester", "defer");
    const Order order{Order::Kind::kAsk, 1, support::kLong, question};
    support::Post("peer", "relay", 1, {reinterpret_cast<const char*>(&order), sizeof(order)});
    ASSERT_TRUE(inbox.Await(1));
    peer.Kill();
    support::AwaitAbsence("peer");
    EXPECT_EQ(Reply(inbox.All()[0].envelope), 0x8002000fU);
}

TEST_F(OsMsgSynSendRespTest, AtMost1024AreDeferred) {
    const Inbox kept;
    const Inbox refused;
    AddTask("defer", [kept, refused](const TagMsgBlock& message) {
        const uint32_t result = OsMsgSynDeferResp(&message);
        (result == OS_MSG_OK ? kept : refused).Put(message);
        EXPECT_TRUE(result == OS_MSG_OK || result == 0x80020003U);
        return 0U;
    });
    {
        const Peer peer("peer");
        support::Relay("peer", Order::Kind::kAsk, Envelope("tester", "defer"), 1025, 1);
        // Those that found the queue full were not deferred: ask until the limit is reached.
        ASSERT_TRUE(WaitFor([&refused] {
            support::Relay("peer", Order::Kind::kAsk, Envelope("tester", "defer"), 1, support::kShort);
            return refused.Count() != 0;
        }));
        EXPECT_EQ(kept.Count(), 1024U);
        // Room for one more once one is answered.
        OsMsgSynSendResp(&kept.All()[0].envelope, nullptr, 0);
        support::Relay("peer", Order::Kind::kAsk, Envelope("tester", "defer"), 1, support::kShort);
        EXPECT_TRUE(kept.Await(1025));
    }
    // Those of a sender that has left are forgotten.
    support::AwaitAbsence("peer");
    const size_t before = kept.Count();
    EXPECT_EQ(Ask(Envelope("tester", "defer"), support::kShort).result, 0x8002000bU);
    EXPECT_TRUE(kept.Await(before + 1));
}
