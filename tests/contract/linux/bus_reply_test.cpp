// Replies between processes of which one speaks D-Bus itself.
#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "bus_test.h"
#include "linux/asker.h"
#include "linux/open_bus.h"
#include "support/private_bus.h"
#include "support/raw_connection.h"
#include "thread_starter.h"

using namespace support;

namespace {

class OsMsgOwedReplyTest : public BusTest {};

}  // namespace

TEST_F(OsMsgOwedReplyTest, ANameThatTheSenderGivesUpCostsItNoReply) {
    const Gate gate;
    const Inbox inbox;
    AddTask("slow", [&gate](TagMsgBlock& message) {
        gate.Pass();
        Answer(message, "at last");
        return 0U;
    });
    AddTask("inbox", inbox.Keep());
    Asker asker;
    asker.Take("com.kivo.proc.asker");
    asker.Take("com.kivo.proc.second");
    asker.Ask("tester", "slow");
    ASSERT_TRUE(gate.Reached());
    asker.GiveUp("com.kivo.proc.second");
    asker.GiveUp("com.kivo.proc.asker");
    RawConnection().Post("tester", "inbox", 7);
    ASSERT_TRUE(inbox.Await(1));  // what came before it has been read
    gate.Open();
    EXPECT_EQ(asker.Reply(), "at last");
}

TEST_F(OsMsgOwedReplyTest, AQueuedMessageIsAnsweredAlthoughItsSenderGivesUpItsName) {
    const Gate gate;
    const Inbox inbox;
    AddTask("slow", [&gate](TagMsgBlock& message) {
        gate.Pass();
        return OsMsgSynSendResp(&message, "answer", 6);
    });
    AddTask("inbox", inbox.Keep());
    Post("tester", "slow");
    ASSERT_TRUE(gate.Reached());
    Asker asker;
    asker.Take("com.kivo.proc.asker");
    asker.Ask("tester", "slow");
    asker.GiveUp("com.kivo.proc.asker");
    RawConnection().Post("tester", "inbox", 7);
    ASSERT_TRUE(inbox.Await(1));
    gate.Open();
    EXPECT_EQ(asker.Reply(), "answer");
}

TEST_F(OsMsgOwedReplyTest, TheEndOfTheConnectionEndsWhatItIsOwed) {
    const Gate gate;
    const Inbox inbox;
    std::atomic<uint32_t> answered{0};
    AddTask("slow", [&gate, &answered](TagMsgBlock& message) {
        gate.Pass();
        answered = OsMsgSynSendResp(&message, nullptr, 0);
        return 0U;
    });
    AddTask("inbox", inbox.Keep());
    {
        Asker asker;
        asker.Ask("tester", "slow");
        ASSERT_TRUE(gate.Reached());
    }
    RawConnection().Post("tester", "inbox", 7);
    ASSERT_TRUE(inbox.Await(1));
    gate.Open();
    EXPECT_TRUE(WaitFor([&answered] { return answered == OS_MSG_ERR_NO_REQUEST; }));
}

namespace {

class OsMsgForgedReplyTest : public ContractTest {
protected:
    // Takes the next method call; other messages are dropped.
    static RawMessage NextCall(const RawConnection& connection) {
        sd_bus_message* message = nullptr;
        EXPECT_TRUE(WaitFor([&] {
            while (sd_bus_process(connection.Get(), &message) > 0) {
                if (message != nullptr && sd_bus_message_is_method_call(message, nullptr, nullptr) > 0) {
                    return true;
                }
                message = sd_bus_message_unref(message);
            }
            return false;
        }));
        return RawMessage(message);
    }

    static void ForgeAllLikelyReplies(const RawConnection& hostile, const std::string& victim) {
        for (uint64_t cookie = 1; cookie <= 100; ++cookie) {
            hostile.Forge(victim, cookie, "forged");
        }
    }

    // How many replies that it did not ask for reach a connection of this bus.
    static int ForgedRepliesThatArrive() {
        const RawConnection victim;
        const RawConnection hostile;
        int count = 0;
        const auto see = [](sd_bus_message* message, void* counter, sd_bus_error* /*error*/) {
            uint64_t cookie = 0;
            const bool isReply = sd_bus_message_get_reply_cookie(message, &cookie) >= 0;
            const char* sender = sd_bus_message_get_sender(message);
            *static_cast<int*>(counter) += isReply && *sender == ':' ? 1 : 0;
            return 0;
        };
        victim.Take("com.kivo.proc.victim");
        EXPECT_GE(sd_bus_add_filter(victim.Get(), nullptr, see, &count), 0);
        ForgeAllLikelyReplies(hostile, victim.Name());
        hostile.Post("victim", "any", 1);
        NextCall(victim);
        return count;
    }
};

}  // namespace

TEST_F(OsMsgForgedReplyTest, TheShippedPolicyLetsNoneThrough) {
    const PrivateBus bus;
    EXPECT_EQ(ForgedRepliesThatArrive(), 0);
}

TEST_F(OsMsgForgedReplyTest, OneThatArrivesIsNotTaken) {
    const OpenBus bus;
    ASSERT_EQ(ForgedRepliesThatArrive(), 100);

    ASSERT_EQ(OsProcAttach("tester"), OS_MSG_OK);
    const Inbox inbox;
    AddTask("inbox", inbox.Keep());
    const RawConnection owner;
    owner.Take("com.kivo.proc.owner");
    std::atomic<bool> answered{false};
    Reply reply;
    StartThread([&] {
        reply = Ask("owner", "any");
        answered = true;
    });
    const RawMessage call = NextCall(owner);

    const RawConnection hostile;
    ForgeAllLikelyReplies(hostile, sd_bus_message_get_sender(call.get()));
    hostile.Post("tester", "inbox", 7);
    EXPECT_TRUE(inbox.Await(1));  // what the hostile connection sent before has been read

    EXPECT_GE(sd_bus_reply_method_return(call.get(), "ay", 7, 'g', 'e', 'n', 'u', 'i', 'n', 'e'), 0);
    EXPECT_GE(sd_bus_flush(owner.Get()), 0);
    EXPECT_TRUE(WaitFor([&answered] { return answered.load(); }));
    EXPECT_EQ(reply.data, "genuine");
    OsProcDetach();
}
