// Synchronous messages: replies, time limits, and destinations that are not there, or not for long.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "bus_test.h"
#include "thread_starter.h"

namespace {

using support::AddTask;
using support::Answer;
using support::Ask;
using support::Envelope;
using support::Inbox;
using support::kShort;
using support::Order;
using support::Peer;
using support::WaitFor;

class OsMsgSynSendTest : public support::BusTest {};
class OsMsgAbsenceTest : public support::BusTest {};

// The results of sends on threads of their own.
class Senders {
public:
    // The payload is a copy.
    void Start(const TagMsgBlock& message, const std::string& payload = {}) {
        support::StartThread([state = state_, message, payload] {
            TagMsgBlock mine = Envelope(message.dstProcName, message.dstTaskName, message.msgId, payload);
            std::memcpy(mine.replyTaskName, message.replyTaskName, sizeof(mine.replyTaskName));
            const support::Reply reply = Ask(mine);
            const std::lock_guard lock(state->mutex);
            state->replies.push_back(reply);
        });
    }

    // Waits until that many have returned.
    std::vector<support::Reply> Await(size_t count) const {
        EXPECT_TRUE(WaitFor([this, count] { return All().size() == count; }));
        return All();
    }

    std::vector<support::Reply> All() const {
        const std::lock_guard lock(state_->mutex);
        return state_->replies;
    }

private:
    struct State {
        std::mutex mutex;
        std::vector<support::Reply> replies;
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace

TEST_F(OsMsgSynSendTest, TheReplyComesBack) {
    const Peer peer("peer");
    const support::Reply reply = Ask("peer", "echo", "payload");
    EXPECT_EQ(reply.result, 0U);
    EXPECT_EQ(reply.data, "payload");
}

TEST_F(OsMsgSynSendTest, TheReplyMayBeEmpty) {
    const Peer peer("peer");
    const support::Reply reply = Ask("peer", "echo");
    EXPECT_EQ(reply.result, 0U);
    EXPECT_EQ(reply.data, "");
}

TEST_F(OsMsgSynSendTest, PayloadsAreBytes) {
    const Peer peer("peer");
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte) {
        bytes += static_cast<char>(byte);
    }
    bytes += std::string(3, '\0');
    EXPECT_EQ(Ask("peer", "echo", bytes).data, bytes);
}

TEST_F(OsMsgSynSendTest, OneMebibyteTravelsBothWays) {
    const Peer peer("peer");
    const std::string mebibyte(1048576, 'x');
    EXPECT_EQ(Ask("peer", "echo", mebibyte).data, mebibyte);
}

TEST_F(OsMsgSynSendTest, MoreThanOneMebibyteIsNotSent) {
    const Inbox inbox;
    AddTask("task", inbox.Keep());
    const std::string tooLarge(1048577, 'x');
    EXPECT_EQ(Ask("tester", "task", tooLarge).result, 0x8002000dU);
    const TagMsgBlock message = Envelope("tester", "task", 1, tooLarge);
    EXPECT_EQ(OsMsgAsynSend(&message), 0x8002000dU);
    support::Post("tester", "task", 2);
    ASSERT_TRUE(inbox.Await(1));
    EXPECT_EQ(inbox.Ids(), std::vector<uint32_t>{2});
}

TEST_F(OsMsgSynSendTest, MoreThanOneMebibyteIsNoReply) {
    AddTask("task", [](const TagMsgBlock& message) {
        const std::string tooLarge(1048577, 'x');
        EXPECT_EQ(OsMsgSynSendResp(&message, tooLarge.data(), 1048577), 0x8002000dU);
        Answer(message, "smaller");
        return 0U;
    });
    EXPECT_EQ(Ask("tester", "task").data, "smaller");
}

TEST_F(OsMsgSynSendTest, BadArgumentsAreRefused) {
    const Peer peer("peer");
    TagMsgBlock message = Envelope("peer", "echo");
    TagMsgBlock* reply = nullptr;
    EXPECT_EQ(OsMsgSynSend(nullptr, &reply, kShort), 0x80020002U);
    EXPECT_EQ(OsMsgSynSend(&message, nullptr, kShort), 0x80020002U);
    message.dataLen = 1;
    message.data = nullptr;
    EXPECT_EQ(Ask(message, kShort).result, 0x80020002U);
    EXPECT_EQ(OsMsgAsynSend(&message), 0x80020002U);
    EXPECT_EQ(OsMsgAsynSend(nullptr), 0x80020002U);
}

TEST_F(OsMsgSynSendTest, BadNamesAreRefused) {
    const Peer peer("peer");
    const std::vector<TagMsgBlock> bad = {Envelope("", "echo"),
                                          Envelope("peer", ""),
                                          Envelope("1234567890123456", "echo"),
                                          Envelope("peer", "1234567890123456"),
                                          Envelope("\xff", "echo"),
                                          Envelope("peer", "\xff")};
    for (const TagMsgBlock& message : bad) {
        EXPECT_EQ(Ask(message, kShort).result, 0x80020002U);
        EXPECT_EQ(OsMsgAsynSend(&message), 0x80020002U);
    }
    TagMsgBlock message = Envelope("peer", "echo");
    std::memcpy(message.replyTaskName, "1234567890123456", 16);
    EXPECT_EQ(Ask(message, kShort).result, 0x80020002U);
    EXPECT_EQ(OsMsgAsynSend(&message), 0x80020002U);
}

TEST_F(OsMsgSynSendTest, ASilentTaskIsGivenUpAfterTheTimeLimit) {
    const Peer peer("peer");
    EXPECT_EQ(Ask(Envelope("peer", "silent"), kShort).result, 0x8002000bU);
    EXPECT_EQ(Ask(Envelope("peer", "silent"), 0).result, 0x8002000bU);
    EXPECT_EQ(Ask("peer", "echo", "x").data, "x");
}

TEST_F(OsMsgSynSendTest, AReplyThatComesTooLateIsNotTakenForAnother) {
    const Inbox inbox;
    AddTask("task", [inbox](const TagMsgBlock& message) {
        EXPECT_EQ(OsMsgSynDeferResp(&message), OS_MSG_OK);
        inbox.Put(message);
        return 0U;
    });
    EXPECT_EQ(Ask(Envelope("tester", "task"), kShort).result, 0x8002000bU);
    ASSERT_TRUE(inbox.Await(1));
    Senders senders;
    senders.Start(Envelope("tester", "task"));
    ASSERT_TRUE(inbox.Await(2));
    OsMsgSynSendResp(&inbox.All()[0].envelope, "late", 4);
    Answer(inbox.All()[1].envelope, "right");
    EXPECT_EQ(senders.Await(1)[0].data, "right");
}

TEST_F(OsMsgSynSendTest, ManyThreadsWaitForDifferentPeers) {
    const Peer first("first");
    const Peer second("second");
    Senders senders;
    for (int i = 0; i < 16; ++i) {
        senders.Start(Envelope(i % 2 == 0 ? "first" : "second", "echo"), std::to_string(i));
    }
    std::vector<std::string> got;
    for (const support::Reply& reply : senders.Await(16)) {
        got.push_back(reply.data);
    }
    std::ranges::sort(got);
    EXPECT_EQ(got, (std::vector<std::string>{"0", "1", "10", "11", "12", "13", "14", "15", "2", "3", "4", "5", "6", "7",
                                             "8", "9"}));
}

TEST_F(OsMsgSynSendTest, EachWaitingThreadGetsItsOwnReply) {
    const Inbox inbox;
    AddTask("task", [inbox](const TagMsgBlock& message) {
        EXPECT_EQ(OsMsgSynDeferResp(&message), OS_MSG_OK);
        inbox.Put(message);
        return 0U;
    });
    std::atomic<int> right{0};
    for (int i = 0; i < 16; ++i) {
        support::StartThread([&right, i] {
            const std::string text = std::to_string(i);
            right += Ask("tester", "task", text).data == "reply " + text ? 1 : 0;
        });
    }
    ASSERT_TRUE(inbox.Await(16));
    std::vector<support::Received> asked = inbox.All();
    std::ranges::reverse(asked);
    for (const support::Received& each : asked) {
        Answer(each.envelope, "reply " + each.payload);
    }
    EXPECT_TRUE(WaitFor([&right] { return right == 16; }));
}

TEST_F(OsMsgSynSendTest, ThreadsAndPeersKeepABusyBusInOrder) {
    const Peer first("first");
    const Peer second("second");
    std::atomic<int> right{0};
    std::atomic<int> ended{0};
    for (int i = 0; i < 4; ++i) {
        support::StartThread([&, i] {
            for (int round = 0; round < 100; ++round) {
                const std::string text = std::to_string(i) + ":" + std::to_string(round);
                right += Ask(round % 2 == 0 ? "first" : "second", "echo", text).data == text ? 1 : 0;
            }
            ++ended;
        });
    }
    EXPECT_TRUE(WaitFor([&ended] { return ended == 4; }));
    EXPECT_EQ(right, 400);
}

TEST_F(OsMsgSynSendTest, TasksOfOneProcessAskOneAnother) {
    AddTask("inner", [](const TagMsgBlock& message) {
        Answer(message, "inner");
        return 0U;
    });
    AddTask("outer", [](const TagMsgBlock& message) {
        Answer(message, "outer of " + Ask("tester", "inner").data);
        return 0U;
    });
    EXPECT_EQ(Ask("tester", "outer").data, "outer of inner");
}

TEST_F(OsMsgSynSendTest, ATaskThatAsksItselfWaitsInVain) {
    AddTask("task", [](const TagMsgBlock& message) {
        const bool inner = message.msgId == 2;
        Answer(message, inner ? "inner" : std::to_string(Ask(Envelope("tester", "task", 2), kShort).result));
        return 0U;
    });
    EXPECT_EQ(Ask("tester", "task").data, "2147614731");  // 0x8002000b
}

TEST_F(OsMsgSynSendTest, APeerMayAskBackWhileItIsAsked) {
    const Peer peer("peer");
    AddTask("task", [](const TagMsgBlock& message) {
        Answer(message, "from the tester");
        return 0U;
    });
    const support::Relayed relayed = support::Relay("peer", Order::Kind::kAsk, Envelope("tester", "task"));
    EXPECT_EQ(relayed.outcome.result, 0U);
    EXPECT_EQ(relayed.data, "from the tester");
}

TEST_F(OsMsgSynSendTest, AHandlersResultChangesNothing) {
    OsMsgRegLogFunc([](const char*) {});
    AddTask("task", [](const TagMsgBlock& message) {
        Answer(message, "reply");
        return 5U;
    });
    EXPECT_EQ(Ask("tester", "task").data, "reply");
    EXPECT_EQ(Ask("tester", "task").data, "reply");
    OsMsgRegLogFunc(nullptr);
}

TEST_F(OsMsgSynSendTest, FreeingNoReplyIsHarmless) {
    OsMsgSynRespFree(nullptr);
    const Peer peer("peer");
    EXPECT_EQ(Ask("peer", "echo", "x").data, "x");
}

TEST_F(OsMsgAbsenceTest, AnAbsentProcessIsToldAtOnce) {
    EXPECT_EQ(Ask("nobody", "task").result, 0x80020008U);
    support::Post("nobody", "task");  // goes unnoticed
    EXPECT_EQ(Ask("nobody", "task").result, 0x80020008U);
}

TEST_F(OsMsgAbsenceTest, AnAbsentTaskIsToldAtOnce) {
    const Peer peer("peer");
    EXPECT_EQ(Ask("peer", "nothing").result, 0x80020009U);
    EXPECT_EQ(Ask("tester", "nothing").result, 0x80020009U);
    support::Post("peer", "nothing");
    EXPECT_EQ(Ask("peer", "echo", "x").data, "x");
}

TEST_F(OsMsgAbsenceTest, AProcessThatDiedIsAbsent) {
    Peer peer("peer");
    peer.Kill();
    support::AwaitAbsence("peer");
    EXPECT_EQ(Ask("peer", "echo").result, 0x80020008U);
}

TEST_F(OsMsgAbsenceTest, AProcessThatDiesWhileItIsAskedIsToldAtOnce) {
    const Peer peer("peer");
    EXPECT_EQ(Ask("peer", "die").result, 0x8002000aU);
}

TEST_F(OsMsgAbsenceTest, AllWhoWaitForAProcessLearnThatItDied) {
    Peer peer("peer");
    const Peer other("other");
    const Inbox gate;
    AddTask("gate", gate.Keep());
    // The first message keeps the task busy; its queue has room for four of the others.
    support::Post("peer", "collect", support::kVisitGate);
    ASSERT_TRUE(gate.Await(1));
    Senders queued;
    for (int i = 0; i < 5; ++i) {
        queued.Start(Envelope("peer", "collect"));
    }
    EXPECT_EQ(queued.Await(1)[0].result, 0x8002000cU);
    TagMsgBlock noticed = Envelope("peer", "silent", 2);
    std::memcpy(noticed.replyTaskName, "gate", 5);
    Senders handled;
    handled.Start(noticed);
    ASSERT_TRUE(gate.Await(2));
    peer.Kill();
    EXPECT_EQ(handled.Await(1)[0].result, 0x8002000aU);
    std::vector<support::Reply> replies = queued.Await(5);
    for (size_t i = 1; i < 5; ++i) {
        EXPECT_EQ(replies[i].result, 0x8002000aU);
    }
    EXPECT_EQ(Ask("other", "echo", "x").data, "x");
}

TEST_F(OsMsgAbsenceTest, ANewProcessOfTheNameIsFound) {
    {
        const Peer peer("peer");
        EXPECT_EQ(Ask("peer", "echo", "first").data, "first");
    }
    support::AwaitAbsence("peer");
    const Peer peer("peer");
    EXPECT_EQ(Ask("peer", "echo", "second").data, "second");
}
