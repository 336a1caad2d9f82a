// Moments without memory or threads, and the real end of a bus.
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <optional>
#include <string>

#include "bus_test.h"
#include "linux/asker.h"
#include "linux/log_reader.h"
#include "linux/memory_shortage.h"
#include "support/private_bus.h"
#include "support/raw_connection.h"
#include "thread_starter.h"

using namespace support;

namespace {

class OsMsgMemoryTest : public BusTest {
protected:
    // A task whose thread has begun to wait: it reads the bus, and nobody else needs memory.
    static Inbox WaitingInbox() {
        Inbox inbox;
        AddTask("inbox", inbox.Keep());
        Post("tester", "inbox", 1);
        EXPECT_TRUE(inbox.Await(1));
        return inbox;
    }

    // Does it while the thread that reads the bus finds no memory once, after so many times that it did.
    static void WhileMemoryIsShort(const std::function<void()>& action, int before = 0) {
        FailAllocations(1, before);
        action();
        EXPECT_TRUE(WaitFor([] { return FailuresToCome() == 0; }));
    }
};

}  // namespace

TEST_F(OsMsgMemoryTest, AMomentWithoutMemoryIsNoLossOfTheBus) {
    const Peer peer("peer");
    const Inbox inbox;
    AddTask("inbox", inbox.Keep());
    StandardError errors;
    FailReads(3);
    EXPECT_EQ(Ask("peer", "echo", "payload").data, "payload");
    Post("tester", "inbox", 7);
    EXPECT_TRUE(inbox.Await(1));
    EXPECT_EQ(FailuresToCome(), 0);
    EXPECT_EQ(errors.Lines(), std::vector<std::string>{"kivo_os_msg: no memory to read the bus; it is tried again"});
}

// Each sender is new, so that its user is still to be asked for.
TEST_F(OsMsgMemoryTest, AMessageThatFindsNoMemoryIsRefusedAndTheNextOfItsSenderArrives) {
    const Inbox inbox = WaitingInbox();
    std::vector<uint32_t> ids{1};
    for (int before = 0; before < 5; ++before) {
        const RawConnection sender;
        const RawMessage call = sender.Message("tester", "inbox", 7);
        sd_bus_message* reply = nullptr;
        sd_bus_error error{};
        WhileMemoryIsShort([&] { EXPECT_LT(sd_bus_call(sender.Get(), call.get(), 0, &error, &reply), 0); }, before);
        EXPECT_STREQ(error.name, SD_BUS_ERROR_NO_MEMORY) << before;
        sd_bus_error_free(&error);
        sender.Post("tester", "inbox", 8);
        ids.push_back(8);
        ASSERT_TRUE(inbox.Await(ids.size())) << before;
        EXPECT_EQ(inbox.Ids(), ids);
    }
}

TEST_F(OsMsgMemoryTest, AMessageWhoseSenderDoesNotWaitIsCountedWhenItFindsNoMemory) {
    const Inbox inbox = WaitingInbox();
    const RawConnection sender;
    StandardError errors;
    size_t sent = 1;
    for (int before = 0; sent < inbox.Count() + 3 && before < 20; ++before) {
        const RawMessage call = sender.Message("tester", "inbox", 7);
        ASSERT_GE(sd_bus_message_set_expect_reply(call.get(), 0), 0);
        FailAllocations(1, before);
        ASSERT_GE(sd_bus_send(sender.Get(), call.get(), nullptr), 0);
        ASSERT_GE(sd_bus_flush(sender.Get()), 0);
        ++sent;
        ASSERT_TRUE(WaitFor([&] { return inbox.Count() + OsMsgDroppedCount("inbox") == sent; })) << before;
        FailAllocations(0);
    }
    const uint64_t lost = OsMsgDroppedCount("inbox");
    EXPECT_EQ(lost, 3U);
    EXPECT_EQ(errors.Lines(), std::vector<std::string>(lost, "kivo_os_msg: no memory: task inbox loses a message"));
}

// The task's thread is the only one with anything to do when it takes the second message.
TEST_F(OsMsgMemoryTest, AMessageThatFindsNoMemoryAfterItWasQueuedIsRefused) {
    const Gate gate;
    const Inbox inbox;
    std::atomic<int> handled{0};
    AddTask("slow", [&](TagMsgBlock& /*message*/) {
        if (++handled == 1) {
            gate.Pass();
            FailAllocations(1);
        }
        return 0U;
    });
    AddTask("inbox", inbox.Keep());
    Post("tester", "slow");
    ASSERT_TRUE(gate.Reached());
    Asker asker;
    asker.Ask("tester", "slow");
    RawConnection().Post("tester", "inbox", 7);
    ASSERT_TRUE(inbox.Await(1));  // what came before it is queued
    StandardError errors;
    gate.Open();
    EXPECT_EQ(asker.Reply(), SD_BUS_ERROR_NO_MEMORY);
    EXPECT_EQ(errors.Lines(), std::vector<std::string>{"kivo_os_msg: no memory: task slow loses message 1"});
    EXPECT_EQ(FailuresToCome(), 0);
    EXPECT_EQ(handled, 1);
    Post("tester", "slow");
    EXPECT_TRUE(WaitFor([&handled] { return handled == 2; }));  // the task goes on
}

TEST_F(OsMsgMemoryTest, AProcessThatAppearsWithoutMemoryIsNoticedWithTheNextMessage) {
    const Inbox inbox = WaitingInbox();
    OsMsgSubscription restart{0x200002, 0, "late", "late", "inbox"};
    ASSERT_EQ(OsMsgSubscribeEvent(&restart, 1, 0), OS_MSG_OK);
    const RawConnection process;
    const std::string name = "com.kivo.proc.late";
    WhileMemoryIsShort([&] { process.Take(name); });
    EXPECT_EQ(inbox.Count(), 1U);
    process.Post("tester", "inbox", 8);
    EXPECT_TRUE(inbox.Await(3));
    EXPECT_EQ(inbox.Ids(), (std::vector<uint32_t>{1, 0x200002, 8}));
    EXPECT_STREQ(inbox.All().back().envelope.srcProcName, "late");
}

TEST_F(OsMsgMemoryTest, AnEventThatFindsNoMemoryIsCountedAsLost) {
    const Inbox inbox = WaitingInbox();
    const RawConnection publisher;
    publisher.Take("com.kivo.proc.publisher");
    const OsMsgSubscription event{8, 0, "publisher", "task", "inbox"};
    ASSERT_EQ(OsMsgSubscribeEvent(&event, 1, 0), OS_MSG_OK);
    size_t sent = 0;
    const auto arrived = [&inbox] { return inbox.Count() - 1; };  // the first was no event
    for (int before = 0; arrived() < 3; ++before) {
        ASSERT_LT(before, 20);
        sd_bus_message* raw = nullptr;
        ASSERT_GE(sd_bus_message_new_signal(publisher.Get(), &raw, "/com/kivo/task/task", "com.kivo.Msg", "Event"), 0);
        const RawMessage signal(raw);
        ASSERT_GE(sd_bus_message_append(raw, "uay", 8, 1, 'x'), 0);
        FailAllocations(1, before);
        ASSERT_GE(sd_bus_send(publisher.Get(), raw, nullptr), 0);
        ASSERT_GE(sd_bus_flush(publisher.Get()), 0);
        ++sent;
        EXPECT_TRUE(WaitFor([&] { return arrived() + OsMsgDroppedCount("inbox") == sent; })) << before;
        FailAllocations(0);
    }
    EXPECT_GT(OsMsgDroppedCount("inbox"), 2U);
}

// A thread waits at a descriptor of its own, which it gets when it first waits.
TEST_F(OsMsgMemoryTest, AThreadThatFoundNoDescriptorTriesAgain) {
    const Peer peer("peer");
    std::atomic<uint32_t> first{OS_MSG_OK};
    std::atomic<uint32_t> second{OS_MSG_ERR_NO_MEMORY};
    const Gate between;
    {
        const NoEvents none;
        StartThread([&, between] {
            first = Ask("peer", "echo").result;
            between.Pass();
            second = Ask("peer", "echo").result;
        });
        ASSERT_TRUE(between.Reached());
    }
    EXPECT_EQ(first, OS_MSG_ERR_NO_MEMORY);
    between.Open();
    EXPECT_TRUE(WaitFor([&second] { return second == OS_MSG_OK; }));
}

TEST_F(OsMsgMemoryTest, ATaskWhoseThreadCannotBeMadeLeavesItsNameToTheNext) {
    const Inbox inbox;
    const OsTaskDescriptor task = Describe("inbox", inbox.Keep());
    FailThreads(1);
    EXPECT_EQ(OsTaskCreate(&task), OS_MSG_ERR_NO_MEMORY);
    EXPECT_EQ(FailuresToCome(), 0);
    ASSERT_EQ(OsTaskCreate(&task), OS_MSG_OK);
    Post("tester", "inbox");
    EXPECT_TRUE(inbox.Await(1));
}

TEST_F(DetachedTest, AProcessThatFoundNoDescriptorJoinsLater) {
    OsMsgRegLogFunc([](const char*) {});
    {
        const NoEvents none;
        EXPECT_EQ(OsProcAttach("tester"), OS_MSG_ERR_NO_MEMORY);
    }
    OsMsgRegLogFunc(nullptr);
    EXPECT_EQ(OsProcAttach("tester"), OS_MSG_OK);
}

// It cannot join, or it knows all the same who is there; whichever allocation of its joining failed.
TEST_F(DetachedTest, AProcessThatFoundNoMemoryOnceKnowsWhoIsThereWhenItHasJoined) {
    const RawConnection process;
    process.Take("com.kivo.proc.early");
    OsMsgRegLogFunc([](const char*) {});
    bool isOver = false;
    for (int before = 0; !isOver; ++before) {
        FailAllocations(1, before);
        const uint32_t joined = OsProcAttach("tester");
        isOver = FailuresToCome() > 0;
        FailAllocations(0);
        if (joined != OS_MSG_OK) {
            ASSERT_EQ(joined, OS_MSG_ERR_NO_MEMORY) << before;
            continue;
        }
        const Inbox inbox;
        AddTask("inbox", inbox.Keep());
        process.Post("tester", "inbox", 7);
        ASSERT_TRUE(inbox.Await(1)) << before;
        EXPECT_STREQ(inbox.All()[0].envelope.srcProcName, "early") << before;
        OsProcDetach();
    }
    OsMsgRegLogFunc(nullptr);
}

// The first thread is the one that reads the bus, the next two are the tasks'.
TEST_F(DetachedTest, ATaskRunnerThatLacksAThreadLeavesTheBus) {
    const std::array tasks{Describe("first", Inbox().Keep()), Describe("second", Inbox().Keep())};
    for (int before = 0; before < 3; ++before) {
        FailThreads(1, before);
        EXPECT_EQ(OsTaskRun("tester", tasks.data(), tasks.size()), OS_MSG_ERR_NO_MEMORY) << before;
        EXPECT_EQ(FailuresToCome(), 0);
        EXPECT_EQ(OsProcAttach("tester"), OS_MSG_OK) << before;
        OsProcDetach();
    }
}

TEST(OsMsgLossTest, TheEndOfTheBusEndsLoopsAndWaits) {
    StandardError errors;
    std::optional<PrivateBus> bus(std::in_place);
    ASSERT_EQ(OsProcAttach("tester"), OS_MSG_OK);
    const Gate gate;
    AddTask("slow", [&gate](TagMsgBlock& /*message*/) {
        gate.Pass();
        return 0U;
    });
    AddTask("looping", Inbox().Keep());
    std::atomic<uint32_t> asked{0};
    StartThread([&asked] { asked = Ask("tester", "slow").result; });
    ASSERT_TRUE(gate.Reached());
    bus.reset();
    EXPECT_TRUE(WaitFor([&asked] { return asked == OS_MSG_ERR_NO_BUS; }));
    gate.Open();
    EXPECT_TRUE(WaitFor([&errors] {
        const auto lines = errors.Lines();
        return std::ranges::find(
                   lines, "kivo_os_msg: task looping ended with 0x80020007 (the bus cannot be reached)") != lines.end();
    }));
    OsProcDetach();

    bus.emplace();
    ASSERT_EQ(OsProcAttach("tester"), OS_MSG_OK) << "the next one is as good as the first";
    const Inbox inbox;
    AddTask("inbox", inbox.Keep());
    Post("tester", "inbox");
    EXPECT_TRUE(inbox.Await(1));
    OsProcDetach();
}
