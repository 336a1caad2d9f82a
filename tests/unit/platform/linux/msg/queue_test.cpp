// The queue of a task: order, bounds, and senders that are not known yet.
#include <sys/socket.h>
#include <systemd/sd-bus.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "msg/queue.h"

namespace {

using kivo::msg::BusPtr;
using kivo::msg::Incoming;
using kivo::msg::MessagePtr;
using kivo::msg::Queue;

constexpr size_t kMiB = 1024 * 1024;

std::unique_ptr<Incoming> Message(uint32_t id, size_t size = 0) {
    auto message = std::make_unique<Incoming>();
    message->block.msgId = id;
    message->block.dataLen = static_cast<uint32_t>(size);
    return message;
}

void Push(Queue& queue, const std::string& sender, uint32_t first, uint32_t count = 1) {
    for (uint32_t id = first; id < first + count; ++id) {
        queue.Push(Message(id), sender, 7);
    }
}

std::vector<uint32_t> TakeAll(Queue& queue, size_t most = SIZE_MAX) {
    std::vector<uint32_t> ids;
    while (queue.HasMessage() && ids.size() < most) {
        ids.push_back(queue.Take()->block.msgId);
    }
    return ids;
}

// How many messages of a sender fit, one after the other.
size_t Fill(Queue& queue, const std::string& sender, size_t size = 0) {
    size_t count = 0;
    while (queue.HasRoom(sender, size)) {
        queue.Push(Message(0, size), sender, 7);
        ++count;
    }
    return count;
}

// A message of no use but to be owed.
MessagePtr AnyReply(const BusPtr& bus) {
    sd_bus_message* reply = nullptr;
    EXPECT_GE(sd_bus_message_new_signal(bus.get(), &reply, "/", "a.b", "C"), 0);
    return MessagePtr(reply);
}

BusPtr AnyBus() {
    std::array<int, 2> ends{};
    sd_bus* bus = nullptr;
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()), 0);
    EXPECT_GE(sd_bus_new(&bus), 0);
    EXPECT_GE(sd_bus_set_fd(bus, ends[0], ends[0]), 0);
    EXPECT_GE(sd_bus_start(bus), 0);
    close(ends[1]);
    return BusPtr(bus);
}

}  // namespace

// Its connection may have ended meanwhile.
TEST(MsgQueueTest, ASenderWhoseMessagesHaveAllLeftIsIdentifiedAgain) {
    Queue queue(64);
    Push(queue, ":1.1", 1);
    EXPECT_EQ(TakeAll(queue), std::vector<uint32_t>{1});
    queue.Push(Message(2), ":1.1", std::nullopt);
    EXPECT_FALSE(queue.HasMessage());
    queue.Identify(":1.1", 8);
    ASSERT_TRUE(queue.HasMessage());
    EXPECT_EQ(queue.Take()->block.uid, 8U);
}

TEST(MsgQueueTest, MessagesLeaveInTheOrderOfTheirArrival) {
    Queue queue(64);
    Push(queue, ":1.1", 1, 3);
    Push(queue, ":1.2", 4);
    Push(queue, ":1.1", 5);
    EXPECT_EQ(TakeAll(queue), (std::vector<uint32_t>{1, 2, 3, 4, 5}));
    EXPECT_FALSE(queue.HasMessage());
}

TEST(MsgQueueTest, OneSenderGetsSevenEighths) {
    Queue queue(64);
    EXPECT_EQ(Fill(queue, ":1.1"), 56U);
    EXPECT_EQ(Fill(queue, ":1.2"), 1U);
    EXPECT_EQ(Fill(queue, ":1.3"), 1U);
    (void)TakeAll(queue);
    EXPECT_EQ(Fill(queue, ":1.1"), 56U);
}

TEST(MsgQueueTest, ThePlacesThatAreLeftGoToNewSendersUntilItIsFull) {
    Queue queue(64);
    (void)Fill(queue, ":1.1");
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(Fill(queue, ":2." + std::to_string(i)), 1U);
    }
    EXPECT_FALSE(queue.HasRoom(":1.9", 0));
}

TEST(MsgQueueTest, AQueueOfFewBelongsToWhoComesFirst) {
    Queue queue(7);
    EXPECT_EQ(Fill(queue, ":1.1"), 7U);
    EXPECT_FALSE(queue.HasRoom(":1.2", 0));
}

TEST(MsgQueueTest, BytesAreBoundedLikeMessages) {
    Queue queue(512);
    EXPECT_EQ(Fill(queue, ":1.1", kMiB), 14U);
    EXPECT_TRUE(queue.HasRoom(":1.1", 0));
    EXPECT_TRUE(queue.HasRoom(":1.2", 2 * kMiB));
    EXPECT_FALSE(queue.HasRoom(":1.2", 2 * kMiB + 1));
    (void)queue.Take();
    EXPECT_TRUE(queue.HasRoom(":1.1", kMiB));
    EXPECT_FALSE(queue.HasRoom(":1.1", kMiB + 1));
    queue.Clear();
    EXPECT_EQ(Fill(queue, ":1.1", kMiB), 14U);
}

TEST(MsgQueueTest, EveryOtherMessageIsOfASenderWithFewWhileAnotherHasMany) {
    Queue queue(512);
    Push(queue, ":1.1", 1, 100);
    Push(queue, ":1.2", 201, 2);
    Push(queue, ":1.3", 301);
    EXPECT_EQ(TakeAll(queue, 7), (std::vector<uint32_t>{201, 1, 202, 2, 301, 3, 4}));
}

TEST(MsgQueueTest, ManyAreMoreThanAnEighthOfTheQueue) {
    Queue queue(512);
    Push(queue, ":1.1", 1, 65);
    Push(queue, ":1.2", 201, 3);
    EXPECT_EQ(TakeAll(queue, 3), (std::vector<uint32_t>{201, 1, 2}));
}

TEST(MsgQueueTest, UpToEightAreFewInAnyQueue) {
    Queue queue(12);
    Push(queue, ":1.1", 1, 9);
    Push(queue, ":1.2", 201, 2);
    EXPECT_EQ(TakeAll(queue, 3), (std::vector<uint32_t>{201, 1, 2}));
}

// An owner registers; a requester that was told of it asks for a run.
TEST(MsgQueueTest, AMessageWaitsUntilTheSendersOfThoseBeforeItAreKnown) {
    Queue queue(64);
    queue.Push(Message(1), ":1.1", std::nullopt);
    EXPECT_FALSE(queue.HasMessage());
    Push(queue, ":1.2", 2);
    EXPECT_FALSE(queue.HasMessage());
    queue.Push(Message(3), ":1.1", std::nullopt);
    queue.Identify(":1.1", 1000);
    const std::unique_ptr<Incoming> first = queue.Take();
    EXPECT_EQ(first->block.msgId, 1U);
    EXPECT_EQ(first->block.uid, 1000U);
    queue.Push(Message(4), ":1.1", 1000);
    EXPECT_EQ(TakeAll(queue), (std::vector<uint32_t>{2, 3, 4}));
}

TEST(MsgQueueTest, MessagesBeforeOneOfAnUnknownSenderLeave) {
    Queue queue(64);
    Push(queue, ":1.2", 1, 2);
    queue.Push(Message(3), ":1.1", std::nullopt);
    EXPECT_EQ(TakeAll(queue), (std::vector<uint32_t>{1, 2}));
    EXPECT_FALSE(queue.HasMessage());
}

TEST(MsgQueueTest, AMessageWithTheUserIdMakesThoseBeforeItReady) {
    Queue queue(64);
    queue.Push(Message(1), ":1.1", std::nullopt);
    queue.Push(Message(2), ":1.1", 1000);
    EXPECT_EQ(TakeAll(queue), (std::vector<uint32_t>{1, 2}));
}

TEST(MsgQueueTest, OnlyMessagesBeforeOneOfAnUnknownSenderOvertakeACrowd) {
    Queue queue(512);
    Push(queue, ":1.1", 1, 100);
    Push(queue, ":1.2", 201);
    queue.Push(Message(301), ":1.3", std::nullopt);
    Push(queue, ":1.2", 202);
    EXPECT_EQ(TakeAll(queue, 3), (std::vector<uint32_t>{201, 1, 2}));
    queue.Identify(":1.3", 7);
    EXPECT_EQ(TakeAll(queue, 4), (std::vector<uint32_t>{3, 301, 4, 202}));
}

TEST(MsgQueueTest, OfASenderThatHasLeftOnlyMessagesWithoutReplyRemain) {
    const BusPtr bus = AnyBus();
    Queue queue(64);
    for (uint32_t id = 1; id <= 4; ++id) {
        queue.Push(Message(id), ":1.1", std::nullopt);
        auto wanted = Message(10 + id);
        wanted->reply = AnyReply(bus);
        queue.Push(std::move(wanted), ":1.1", std::nullopt);
    }
    Push(queue, ":1.2", 5);
    queue.Identify(":1.1", std::nullopt);
    const std::unique_ptr<Incoming> first = queue.Take();
    EXPECT_EQ(first->block.msgId, 1U);
    EXPECT_EQ(first->block.uid, UINT32_MAX);
    EXPECT_EQ(TakeAll(queue), (std::vector<uint32_t>{2, 3, 4, 5}));
}

TEST(MsgQueueTest, ASenderThatHasLeftWithNothingButQuestionsLeavesNothing) {
    const BusPtr bus = AnyBus();
    Queue queue(64);
    for (uint32_t id = 1; id <= 2; ++id) {
        auto wanted = Message(id);
        wanted->reply = AnyReply(bus);
        queue.Push(std::move(wanted), ":1.1", std::nullopt);
    }
    queue.Identify(":1.1", std::nullopt);
    EXPECT_FALSE(queue.HasMessage());
    EXPECT_EQ(Fill(queue, ":1.1"), 56U);
}

TEST(MsgQueueTest, HoldsTellsAsynchronousMessagesByIdAndProcess) {
    const BusPtr bus = AnyBus();
    Queue queue(64);
    auto news = Message(5);
    news->block.srcProcName[0] = 'a';
    queue.Push(std::move(news), "", UINT32_MAX);
    EXPECT_TRUE(queue.Holds(5, "a"));
    EXPECT_FALSE(queue.Holds(5, "b"));
    EXPECT_FALSE(queue.Holds(6, "a"));
    auto wanted = Message(6);
    wanted->block.srcProcName[0] = 'a';
    wanted->reply = AnyReply(bus);
    queue.Push(std::move(wanted), ":1.1", 7);
    EXPECT_FALSE(queue.Holds(6, "a"));
}
