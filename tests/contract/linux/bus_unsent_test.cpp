// What a process cannot send because the bus does not take it.
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <optional>
#include <string>

#include "bus_test.h"
#include "linux/open_bus.h"
#include "linux/stopped_daemon.h"
#include "support/private_bus.h"
#include "support/raw_connection.h"
#include "support/temp_folder.h"
#include "thread_starter.h"

using namespace support;

namespace {

constexpr size_t kMiB = 1024 * 1024;

// What the socket to the bus takes at most.
constexpr size_t kSocketMiB = 16;

int CountCalls(sd_bus_message* message, void* count, sd_bus_error* /*error*/) {
    *static_cast<size_t*>(count) += sd_bus_message_is_method_call(message, "com.kivo.Msg", "Send") > 0 ? 1 : 0;
    return 0;
}

int CountReplies(sd_bus_message* message, void* count, sd_bus_error* /*error*/) {
    *static_cast<size_t*>(count) += sd_bus_message_is_method_error(message, nullptr) == 0 ? 1 : 0;
    return 0;
}

// A process that takes what is sent to it when it is told to.
class Sink : public RawConnection {
public:
    Sink() {
        Take("com.kivo.proc.sink");
        EXPECT_GE(sd_bus_add_filter(Get(), nullptr, CountCalls, &count_), 0);
    }

    [[nodiscard]] bool Receives(size_t count) {
        return WaitFor([&] {
            while (sd_bus_process(Get(), nullptr) > 0) {
            }
            return count_ >= count;
        });
    }

    [[nodiscard]] size_t Count() const { return count_; }

private:
    size_t count_ = 0;
};

// Sends to the sink until that is refused. Returns how many were not.
size_t Fill(size_t size, uint32_t& result) {
    const std::string payload(size, 'x');
    const TagMsgBlock message = Envelope("sink", "task", 1, payload);
    const size_t farTooMany = 128 * kMiB / (size + 1024);
    size_t sent = 0;
    for (result = OS_MSG_OK; result == OS_MSG_OK && sent < farTooMany; ++sent) {
        result = OsMsgAsynSend(&message);
    }
    return result == OS_MSG_OK ? sent : sent - 1;
}

// On a bus that keeps all that a receiver has not read yet; the shipped configurations keep as much as a process.
class OsMsgUnsentTest : public DetachedTest {
protected:
    void SetUp() override {
        DetachedTest::SetUp();
        bus_.emplace();
        ASSERT_EQ(OsProcAttach("tester"), OS_MSG_OK);
        OsMsgRegLogFunc([](const char*) {});  // that messages are refused is logged
        AddTask("waiting", inbox_.Keep());
        Post("tester", "waiting");
        ASSERT_TRUE(inbox_.Await(1));  // so its thread reads the bus from now on
    }

    void TearDown() override {
        DetachedTest::TearDown();
        OsMsgRegLogFunc(nullptr);
        bus_.reset();
    }

    Inbox inbox_;

private:
    std::optional<OpenBus> bus_;
};

// One that reads nothing from a connection while much of what that has sent waits for others.
class CongestedBus {
public:
    CongestedBus() : bus_((WriteFile(folder_ / "bus.conf", Config()), folder_ / "bus.conf")) {}

private:
    static std::string Config() {
        std::string config = kOpenBus;
        const std::string end = "</busconfig>";
        return config.insert(config.find(end), R"(<limit name="max_incoming_bytes">100000</limit>)");
    }

    const TempFolder folder_;
    const PrivateBus bus_;
};

}  // namespace

TEST_F(OsMsgUnsentTest, IsBoundedInBytesAndArrivesWhenTheBusTakesIt) {
    Sink sink;
    size_t accepted = 0;
    {
        const StoppedDaemon daemon(sink);
        uint32_t result = OS_MSG_OK;
        accepted = Fill(kMiB, result);
        EXPECT_EQ(result, OS_MSG_ERR_NO_MEMORY);
        EXPECT_GE(accepted, 15U);
        EXPECT_LE(accepted, 15U + kSocketMiB);
        const size_t small = Fill(1000, result);
        EXPECT_EQ(result, OS_MSG_ERR_NO_MEMORY);
        EXPECT_EQ(small, (16777216U - 15U * (1048576U + 1024U)) / (1000U + 1024U)) << "the rest of 16 MiB";
        accepted += small;
    }
    EXPECT_TRUE(sink.Receives(accepted));
    Post("sink", "task");
    EXPECT_TRUE(sink.Receives(accepted + 1));
    EXPECT_EQ(sink.Count(), accepted + 1);
}

// Each counts for a kibibyte beside its payload.
TEST_F(OsMsgUnsentTest, ManySmallMessagesAreBoundedToo) {
    Sink sink;
    size_t accepted = 0;
    {
        const StoppedDaemon daemon(sink);
        uint32_t result = OS_MSG_OK;
        accepted = Fill(0, result);
        EXPECT_EQ(result, OS_MSG_ERR_NO_MEMORY);
        EXPECT_GE(accepted, 16384U);
        EXPECT_LT(accepted, 50'000U) << "more than the socket holds beside them";
    }
    EXPECT_TRUE(sink.Receives(accepted));
}

TEST_F(OsMsgUnsentTest, WhateverIsSentIsRefusedWhenTooMuchWaits) {
    const Gate gate;
    std::atomic<uint32_t> answered{OS_MSG_OK};
    AddTask("slow", [&](TagMsgBlock& message) {
        gate.Pass();
        answered = OsMsgSynSendResp(&message, "answer", 6);
        return 0U;
    });
    Sink sink;
    std::atomic<uint32_t> asked{OS_MSG_OK};
    StartThread([&asked] { asked = Ask(Envelope("tester", "slow"), kLong).result; });
    ASSERT_TRUE(gate.Reached());
    size_t accepted = 0;
    {
        const StoppedDaemon daemon(sink);
        uint32_t result = OS_MSG_OK;
        accepted = Fill(kMiB, result) + Fill(0, result);
        EXPECT_EQ(Ask("sink", "task").result, OS_MSG_ERR_NO_MEMORY);
        const OsMsgEvent event{"waiting", 8, 0, nullptr};
        EXPECT_EQ(OsMsgBroadcastEvent(&event, 1), OS_MSG_ERR_NO_MEMORY);
        const OsMsgSubscription subscription{8, 0, "other", "task", "waiting"};
        EXPECT_EQ(OsMsgSubscribeEvent(&subscription, 1, 0), OS_MSG_ERR_NO_MEMORY);
        gate.Open();
        EXPECT_TRUE(WaitFor([&answered] { return answered != OS_MSG_OK; }));
        EXPECT_EQ(answered, OS_MSG_ERR_NO_MEMORY);
    }
    EXPECT_TRUE(sink.Receives(accepted));
    OsProcDetach();
    EXPECT_TRUE(WaitFor([&asked] { return asked == OS_MSG_ERR_NOT_ATTACHED; }));
}

// sd-bus answers some calls itself. The asker is known, as a stranger's user would have to be asked for.
TEST(OsMsgCongestionTest, CallsThatCouldNotBeAnsweredAreNotAnswered) {
    const CongestedBus bus;
    OsMsgRegLogFunc([](const char*) {});
    ASSERT_EQ(OsProcAttach("tester"), OS_MSG_OK);
    const Inbox inbox;
    AddTask("inbox", inbox.Keep());
    Sink sink;
    const RawConnection asker;
    constexpr size_t kMany = 100;
    size_t replies = 0;
    size_t lastReplies = 0;
    const auto introspect = [&](size_t& counted) {
        EXPECT_GE(sd_bus_call_method_async(
                      asker.Get(), nullptr, "com.kivo.proc.tester", "/com/kivo/task/inbox",
                      "org.freedesktop.DBus.Introspectable", "Introspect",
                      [](sd_bus_message* message, void* count, sd_bus_error* error) {
                          return CountReplies(message, count, error);
                      },
                      &counted, nullptr),
                  0);
    };
    asker.Post("tester", "inbox", 7);
    ASSERT_TRUE(inbox.Await(1));
    uint32_t result = OS_MSG_OK;
    size_t accepted = Fill(kMiB / 2, result);
    // The bus takes some more until it has read all that it reads.
    for (int full = 0; full < 50; ++full) {
        const size_t more = Fill(0, result);
        accepted += more;
        full = more > 0 ? 0 : full;
        EXPECT_TRUE(asker.IsThere("com.kivo.proc.tester"));
    }
    for (size_t i = 0; i < kMany; ++i) {
        introspect(replies);
    }
    asker.Post("tester", "inbox", 8);
    ASSERT_TRUE(inbox.Await(2)) << "the bus does not read, but it sends";
    EXPECT_TRUE(sink.Receives(accepted));
    introspect(lastReplies);
    EXPECT_TRUE(WaitFor([&] {
        while (sd_bus_process(asker.Get(), nullptr) > 0) {
        }
        return lastReplies > 0;
    }));
    EXPECT_LT(replies, kMany) << "a slow bus may have taken a few";
    OsProcDetach();
    OsMsgRegLogFunc(nullptr);
}

TEST_F(OsMsgUnsentTest, LeavingTheBusDoesNotWaitForADaemonThatHangs) {
    const Sink sink;
    std::atomic<bool> left{false};
    std::optional<StoppedDaemon> daemon(std::in_place, sink);
    uint32_t result = OS_MSG_OK;
    EXPECT_GE(Fill(kMiB, result), 15U);
    (void)Fill(0, result);  // no room for anything is left
    StartThread([&left] {
        OsProcDetach();
        left = true;
    });
    EXPECT_TRUE(WaitFor([&left] { return left.load(); }));
    daemon.reset();
    EXPECT_TRUE(WaitFor([&] { return left.load() && !sink.IsThere("com.kivo.proc.tester"); }));
    EXPECT_EQ(OsProcAttach("tester"), OS_MSG_OK) << "what was not sent takes no room any more";
}

TEST_F(OsMsgUnsentTest, IsSentBeforeTheProcessLeavesABusThatTakesIt) {
    Sink sink;
    size_t accepted = 0;
    {
        const StoppedDaemon daemon(sink);
        uint32_t result = OS_MSG_OK;
        accepted = Fill(kMiB, result);
    }
    OsProcDetach();
    EXPECT_TRUE(sink.Receives(accepted));
}
