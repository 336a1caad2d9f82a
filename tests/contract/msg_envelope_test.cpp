// What a receiver sees of a message: what the sender says, and what the platform says of the sender.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "bus_test.h"

namespace {

using support::AddTask;
using support::Ask;
using support::Envelope;
using support::Inbox;
using support::Order;
using support::Peer;
using support::Received;

class OsMsgEnvelopeTest : public support::BusTest {
protected:
    // What the peer's task "mirror" saw of the message.
    static TagMsgBlock Seen(const TagMsgBlock& message) {
        const support::Reply reply = Ask(message);
        TagMsgBlock seen{};
        EXPECT_EQ(reply.data.size(), sizeof seen);
        if (reply.data.size() == sizeof seen) {
            std::memcpy(&seen, reply.data.data(), sizeof(seen));
        }
        return seen;
    }
};

// Whatever a sender could lie about.
TagMsgBlock Impostor(const char* task) {
    TagMsgBlock message = Envelope("tester", task, 5, "payload");
    message.msgType = 1;
    message.uid = 4242;
    std::memcpy(message.srcProcName, "ominspect", 10);
    std::memcpy(message.srcTaskName, "iom_srv_task", 13);
    std::memset(message.reserved4, 1, sizeof(message.reserved4));
    return message;
}

}  // namespace

TEST_F(OsMsgEnvelopeTest, ASynchronousMessageArrivesFilledIn) {
    const Peer peer("peer");
    TagMsgBlock message = Envelope("peer", "mirror", 4294967295U, "12345");
    message.param = 4294967294U;
    const TagMsgBlock seen = Seen(message);
    EXPECT_EQ(seen.msgType, 1U);
    EXPECT_EQ(seen.uid, getuid());
    EXPECT_STREQ(seen.srcProcName, "tester");
    EXPECT_EQ(seen.msgId, 4294967295U);
    EXPECT_STREQ(seen.dstProcName, "peer");
    EXPECT_STREQ(seen.dstTaskName, "mirror");
    EXPECT_EQ(seen.param, 4294967294U);
    EXPECT_EQ(seen.dataLen, 5U);
}

TEST_F(OsMsgEnvelopeTest, AnAsynchronousMessageArrivesFilledIn) {
    const Peer peer("peer");
    const Inbox inbox;
    AddTask("task", inbox.Keep());
    TagMsgBlock message = Envelope("tester", "task", 18, "12345");
    message.param = 7;
    EXPECT_EQ(support::Relay("peer", Order::Kind::kPost, message).outcome.result, 0U);
    ASSERT_TRUE(inbox.Await(1));
    const Received received = inbox.All()[0];
    EXPECT_NE(received.envelope.msgType, 1U);
    EXPECT_EQ(received.envelope.uid, getuid());
    EXPECT_STREQ(received.envelope.srcProcName, "peer");
    EXPECT_STREQ(received.envelope.srcTaskName, "relay");
    EXPECT_EQ(received.envelope.msgId, 18U);
    EXPECT_STREQ(received.envelope.dstProcName, "tester");
    EXPECT_STREQ(received.envelope.dstTaskName, "task");
    EXPECT_EQ(received.envelope.param, 7U);
    EXPECT_STREQ(received.envelope.replyTaskName, "relay");
    EXPECT_EQ(received.payload, "12345");
}

TEST_F(OsMsgEnvelopeTest, AnEmptyPayloadIsNull) {
    const Peer peer("peer");
    const TagMsgBlock seen = Seen(Envelope("peer", "mirror"));
    EXPECT_EQ(seen.dataLen, 0U);
    EXPECT_EQ(seen.data, nullptr);
}

TEST_F(OsMsgEnvelopeTest, TheSendersTaskIsTheOneThatItsThreadRuns) {
    const Peer peer("peer");
    EXPECT_STREQ(Seen(Envelope("peer", "mirror")).srcTaskName, "");  // the test's thread runs none
    AddTask("task", [](const TagMsgBlock& message) {
        const TagMsgBlock seen = Seen(Envelope("peer", "mirror"));
        EXPECT_STREQ(seen.srcProcName, "tester");
        EXPECT_STREQ(seen.srcTaskName, "task");
        EXPECT_STREQ(seen.replyTaskName, "task");
        support::Answer(message);
        return 0U;
    });
    EXPECT_EQ(Ask("tester", "task").result, 0U);
}

TEST_F(OsMsgEnvelopeTest, AnswersGoToTheTaskThatTheSenderNames) {
    const Peer peer("peer");
    TagMsgBlock message = Envelope("peer", "mirror");
    std::memcpy(message.replyTaskName, "123456789012345", 16);
    EXPECT_STREQ(Seen(message).replyTaskName, "123456789012345");
    AddTask("task", [message](const TagMsgBlock& request) {
        const TagMsgBlock seen = Seen(message);
        EXPECT_STREQ(seen.srcTaskName, "task");
        EXPECT_STREQ(seen.replyTaskName, "123456789012345");
        support::Answer(request);
        return 0U;
    });
    EXPECT_EQ(Ask("tester", "task").result, 0U);
}

TEST_F(OsMsgEnvelopeTest, WhatASenderSaysOfItselfIsIgnored) {
    const Peer peer("peer");
    const Inbox inbox;
    AddTask("task", inbox.Keep());
    EXPECT_EQ(support::Relay("peer", Order::Kind::kPost, Impostor("task")).outcome.result, 0U);
    support::Relay("peer", Order::Kind::kAsk, Impostor("task"), 1, support::kShort);
    ASSERT_TRUE(inbox.Await(2));
    for (const Received& received : inbox.All()) {
        EXPECT_EQ(received.envelope.uid, getuid());
        EXPECT_STREQ(received.envelope.srcProcName, "peer");
        EXPECT_STREQ(received.envelope.srcTaskName, "relay");
        EXPECT_EQ(received.payload, "payload");
    }
    EXPECT_NE(inbox.All()[0].envelope.msgType, 1U);
    EXPECT_EQ(inbox.All()[1].envelope.msgType, 1U);
}

TEST_F(OsMsgEnvelopeTest, ANameThatComesBackIsTheNewProcesss) {
    const Inbox inbox;
    AddTask("task", inbox.Keep());
    for (uint32_t id = 1; id <= 2; ++id) {
        const Peer peer("peer");
        EXPECT_EQ(support::Relay("peer", Order::Kind::kPost, Envelope("tester", "task", id)).outcome.result, 0U);
        ASSERT_TRUE(inbox.Await(id));
        EXPECT_STREQ(inbox.All().back().envelope.srcProcName, "peer");
    }
    EXPECT_EQ(inbox.Ids(), (std::vector<uint32_t>{1, 2}));
}

TEST_F(OsMsgEnvelopeTest, TwoPeersAreToldApart) {
    const Peer first("first");
    const Peer second("second");
    const Inbox inbox;
    AddTask("task", inbox.Keep());
    for (const char* peer : {"first", "second", "first"}) {
        EXPECT_EQ(support::Relay(peer, Order::Kind::kPost, Envelope("tester", "task")).outcome.result, 0U);
    }
    ASSERT_TRUE(inbox.Await(3));
    std::vector<std::string> sources;
    for (const Received& received : inbox.All()) {
        sources.emplace_back(received.envelope.srcProcName);
    }
    EXPECT_EQ(sources, (std::vector<std::string>{"first", "second", "first"}));
}
