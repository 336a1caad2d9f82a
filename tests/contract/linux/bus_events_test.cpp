// To whom a process sends its events.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <vector>

#include "bus_test.h"
#include "linux/memory_shortage.h"
#include "support/raw_connection.h"
#include "thread_starter.h"

using namespace support;

namespace {

constexpr const char* kProcessPath = "/com/kivo/process";
constexpr const char* kPublisherInterface = "com.kivo.Msg.Publisher";

uint32_t Broadcast(const char* task, uint32_t id) {
    OsMsgEvent event{};
    std::strncpy(event.taskName, task, sizeof event.taskName - 1);
    event.eventId = id;
    return OsMsgBroadcastEvent(&event, 1);
}

uint32_t Subscribe(const char* proc, const char* task, uint32_t id) {
    OsMsgSubscription subscription{};
    subscription.eventId = id;
    std::strncpy(subscription.srcProcName, proc, sizeof subscription.srcProcName - 1);
    std::strncpy(subscription.srcTaskName, task, sizeof subscription.srcTaskName - 1);
    std::strncpy(subscription.dstTaskName, "inbox", sizeof subscription.dstTaskName - 1);
    return OsMsgSubscribeEvent(&subscription, 1, 0);
}

// A raw connection that notes the messages that come to it, without answering any.
class Listener : public RawConnection {
public:
    Listener() {
        EXPECT_GE(sd_bus_add_filter(Get(), nullptr, OnMessage, this), 0);
        EXPECT_GE(
            sd_bus_add_match(Get(), nullptr, "type='signal',interface='com.kivo.Msg',member='Event'", nullptr, nullptr),
            0);
    }

    // What has come so far: "event 8", "call Subscribe", "reply".
    std::vector<std::string>& Notes() {
        while (sd_bus_process(Get(), nullptr) > 0) {
        }
        return notes_;
    }

    size_t Count(const std::string& note) {
        return static_cast<size_t>(std::count(Notes().begin(), Notes().end(), note));
    }

    void Call(const char* method) const {
        EXPECT_GE(sd_bus_call_method(Get(), "com.kivo.proc.tester", kProcessPath, kPublisherInterface, method, nullptr,
                                     nullptr, nullptr),
                  0);
    }

    // Whether an event of the process under test reaches this connection.
    bool Hears(uint32_t id) {
        EXPECT_EQ(Broadcast("task", id), OS_MSG_OK);
        Await();
        return Count("event " + std::to_string(id)) > 0;
    }

private:
    // Once the answer is there, what was sent before is there as well.
    void Await() const {
        sd_bus_message* reply = nullptr;
        EXPECT_GE(sd_bus_call(Get(), Message("tester", "task", 1).get(), 0, nullptr, &reply), 0);
        sd_bus_message_unref(reply);
    }

    static int OnMessage(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
        auto& notes = static_cast<Listener*>(self)->notes_;
        uint32_t id = 0;
        if (sd_bus_message_is_signal(message, "com.kivo.Msg", "Event") > 0) {
            EXPECT_GE(sd_bus_message_read(message, "u", &id), 0);
            notes.push_back("event " + std::to_string(id));
        } else if (sd_bus_message_is_method_call(message, nullptr, nullptr) > 0) {
            notes.push_back(std::string("call ") + sd_bus_message_get_member(message));
        }
        return 0;
    }

    std::vector<std::string> notes_;
};

int RefuseFirst(sd_bus_message* message, void* questions, sd_bus_error* error) {
    return ++*static_cast<std::atomic<int>*>(questions) == 1
               ? sd_bus_error_set_const(error, SD_BUS_ERROR_NO_MEMORY, "out of memory")
               : sd_bus_reply_method_return(message, nullptr);
}

class OsMsgSubscriberTest : public BusTest {
protected:
    void SetUp() override {
        BusTest::SetUp();
        AddTask("inbox", inbox_.Keep());
        AddTask("task", [](TagMsgBlock& message) {
            Answer(message);
            return 0U;
        });
    }

    // Returns when the process under test has read what the bus told it before.
    void Settle() const {
        const size_t before = inbox_.Count();
        RawConnection().Post("tester", "inbox", 7);
        ASSERT_TRUE(inbox_.Await(before + 1));
    }

    Inbox inbox_;
};

}  // namespace

TEST_F(OsMsgSubscriberTest, ANewProcessSendsItsEventsWithoutSubscribers) {
    Listener listener;
    EXPECT_TRUE(listener.Hears(8));
}

TEST_F(OsMsgSubscriberTest, AProcessThatHasSettledSendsItsEventsWhileSomebodySubscribes) {
    Listener listener;
    uint32_t id = 100;
    ASSERT_TRUE(WaitFor([&] { return !listener.Hears(++id); }));
    {
        const Listener subscriber;
        subscriber.Call("Subscribe");
        EXPECT_TRUE(listener.Hears(1));
        subscriber.Call("Unsubscribe");
        EXPECT_FALSE(listener.Hears(2));
        subscriber.Call("Subscribe");
    }
    // The end of a subscriber's connection ends its subscription.
    EXPECT_TRUE(WaitFor([&] { return !listener.Hears(++id); }));
    // Once a process of this platform has subscribed, it misses nothing.
    ASSERT_EQ(Subscribe("tester", "task", 3), OS_MSG_OK);
    EXPECT_TRUE(listener.Hears(3));
    EXPECT_TRUE(inbox_.Await(1));
}

// A process that outlives this one's restart asks again without waiting for an answer.
TEST_F(OsMsgSubscriberTest, ASubscriberForWhomThereWasNoMemoryMissesNothing) {
    Listener listener;
    uint32_t id = 100;
    ASSERT_TRUE(WaitFor([&] { return !listener.Hears(++id); }));
    sd_bus_message* call = nullptr;
    ASSERT_GE(sd_bus_message_new_method_call(listener.Get(), &call, "com.kivo.proc.tester", kProcessPath,
                                             kPublisherInterface, "Subscribe"),
              0);
    const RawMessage question(call);
    ASSERT_GE(sd_bus_message_set_expect_reply(call, 0), 0);
    FailAllocations(1);
    ASSERT_GE(sd_bus_send(listener.Get(), call, nullptr), 0);
    ASSERT_GE(sd_bus_flush(listener.Get()), 0);
    ASSERT_TRUE(WaitFor([] { return FailuresToCome() == 0; }));
    EXPECT_TRUE(listener.Hears(8));
}

TEST_F(OsMsgSubscriberTest, AnEventOvertakesNoReplyAndNoReplyOvertakesAnEvent) {
    AddTask("both", [](TagMsgBlock& message) {
        EXPECT_EQ(Broadcast("task", 1), OS_MSG_OK);
        Answer(message);
        EXPECT_EQ(Broadcast("task", 2), OS_MSG_OK);
        return 0U;
    });
    Listener listener;
    listener.Call("Subscribe");
    const auto onReply = [](sd_bus_message* /*reply*/, void* notes, sd_bus_error* /*error*/) {
        static_cast<std::vector<std::string>*>(notes)->push_back("reply");
        return 0;
    };
    ASSERT_GE(sd_bus_call_async(listener.Get(), nullptr, listener.Message("tester", "both", 1).get(), onReply,
                                &listener.Notes(), UINT64_MAX),
              0);
    ASSERT_TRUE(WaitFor([&] { return listener.Notes().size() == 3; }));
    EXPECT_EQ(listener.Notes(), (std::vector<std::string>{"event 1", "reply", "event 2"}));
}

TEST_F(OsMsgSubscriberTest, AProcessThatStartsLaterIsAskedForItsEventsEachTime) {
    ASSERT_EQ(Subscribe("late", "task", 8), OS_MSG_OK);
    Listener late;
    late.Take("com.kivo.proc.late");
    EXPECT_TRUE(WaitFor([&] { return late.Count("call Subscribe") == 1; }));
    late.GiveUp("com.kivo.proc.late");
    late.Take("com.kivo.proc.late");
    EXPECT_TRUE(WaitFor([&] { return late.Count("call Subscribe") == 2; }));
}

TEST_F(OsMsgSubscriberTest, AProcessWithoutSubscriptionsAsksNobody) {
    Listener late;
    late.Take("com.kivo.proc.late");
    Settle();
    late.Call("Subscribe");
    EXPECT_EQ(late.Count("call Subscribe"), 0U);
}

TEST_F(OsMsgSubscriberTest, ASubscriptionSucceedsAlthoughTheProcessDoesNotAnswer) {
    Listener mute;
    mute.Take("com.kivo.proc.mute");
    Settle();
    EXPECT_EQ(Subscribe("mute", "task", 8), OS_MSG_OK);
    EXPECT_EQ(mute.Count("call Subscribe"), 1U);
}

TEST_F(OsMsgSubscriberTest, ASubscriptionThatIsRefusedFailsAndIsAskedForAgain) {
    std::atomic<bool> over{false};
    std::atomic<bool> there{false};
    std::atomic<int> questions{0};
    support::StartThread([&] {
        const RawConnection publisher;
        const sd_bus_vtable table[] = {SD_BUS_VTABLE_START(0),
                                       SD_BUS_METHOD("Subscribe", "", "", RefuseFirst, SD_BUS_VTABLE_UNPRIVILEGED),
                                       SD_BUS_VTABLE_END};
        EXPECT_GE(
            sd_bus_add_object_vtable(publisher.Get(), nullptr, kProcessPath, kPublisherInterface, table, &questions),
            0);
        publisher.Take("com.kivo.proc.refuser");
        there = true;
        while (!over) {
            while (sd_bus_process(publisher.Get(), nullptr) > 0) {
            }
            sd_bus_wait(publisher.Get(), 1000);
        }
        there = false;
    });
    ASSERT_TRUE(WaitFor([&] { return there.load(); }));
    Settle();
    EXPECT_EQ(Subscribe("refuser", "task", 8), OS_MSG_ERR_NO_MEMORY);
    EXPECT_EQ(Subscribe("refuser", "task", 8), OS_MSG_OK);
    EXPECT_EQ(questions, 2);
    over = true;
    EXPECT_TRUE(WaitFor([&] { return !there; }));
}

TEST_F(OsMsgSubscriberTest, ASecondSubscriptionToTheSameTaskAsksNoSecondTime) {
    Listener mute;
    mute.Take("com.kivo.proc.mute");
    Settle();
    EXPECT_EQ(Subscribe("mute", "task", 8), OS_MSG_OK);
    EXPECT_EQ(Subscribe("mute", "task", 9), OS_MSG_OK);
    EXPECT_EQ(mute.Count("call Subscribe"), 1U);
}
