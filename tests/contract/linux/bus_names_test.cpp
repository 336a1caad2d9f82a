// Connections with several process names, and with none.
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <string>

#include "bus_test.h"
#include "support/raw_connection.h"

using namespace support;

namespace {

class OsMsgNamesTest : public BusTest {
protected:
    void SetUp() override {
        BusTest::SetUp();
        AddTask("inbox", inbox_.Keep());
    }

    // The process name under which a message of this connection arrives.
    [[nodiscard]] std::string SeenAs(const RawConnection& sender) const {
        const size_t before = inbox_.Count();
        sender.Post("tester", "inbox", 7);
        EXPECT_TRUE(inbox_.Await(before + 1));
        return inbox_.All().back().envelope.srcProcName;
    }

    Inbox inbox_;
};

void Broadcast(const RawConnection& sender, const char* path) {
    sd_bus_message* raw = nullptr;
    ASSERT_GE(sd_bus_message_new_signal(sender.Get(), &raw, path, "com.kivo.Msg", "Event"), 0);
    const RawMessage signal(raw);
    ASSERT_GE(sd_bus_message_append(raw, "uay", 8, 0), 0);
    ASSERT_GE(sd_bus_send(sender.Get(), raw, nullptr), 0);
    ASSERT_GE(sd_bus_flush(sender.Get()), 0);
}

// How many match rules the daemon keeps for the process under test.
uint32_t MatchRules(const RawConnection& connection) {
    sd_bus_message* raw = nullptr;
    EXPECT_GE(sd_bus_call_method(connection.Get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                 "org.freedesktop.DBus.Debug.Stats", "GetConnectionStats", nullptr, &raw, "s",
                                 "com.kivo.proc.tester"),
              0);
    const RawMessage answer(raw);
    uint32_t rules = 0;
    EXPECT_GE(sd_bus_message_enter_container(raw, 'a', "{sv}"), 0);
    while (sd_bus_message_enter_container(raw, 'e', "sv") > 0) {
        const char* name = nullptr;
        EXPECT_GE(sd_bus_message_read(raw, "s", &name), 0);
        if (std::string(name) == "MatchRules") {
            EXPECT_GE(sd_bus_message_read(raw, "v", "u", &rules), 0);
            return rules;
        }
        EXPECT_GE(sd_bus_message_skip(raw, "v"), 0);
        EXPECT_GE(sd_bus_message_exit_container(raw), 0);
    }
    ADD_FAILURE() << "the daemon does not count match rules";
    return rules;
}

}  // namespace

TEST_F(OsMsgNamesTest, OfTwoNamesTheFirstInByteOrderCounts) {
    const RawConnection sender;
    sender.Take("com.kivo.proc.mmm");
    EXPECT_EQ(SeenAs(sender), "mmm");
    sender.Take("com.kivo.proc.zzz");
    EXPECT_EQ(SeenAs(sender), "mmm");
    sender.Take("com.kivo.proc.aaa");
    EXPECT_EQ(SeenAs(sender), "aaa");
    sender.GiveUp("com.kivo.proc.aaa");
    EXPECT_EQ(SeenAs(sender), "mmm");
}

TEST_F(OsMsgNamesTest, WhoJoinsLaterSeesTheSameName) {
    const RawConnection sender;
    sender.Take("com.kivo.proc.zzz");
    sender.Take("com.kivo.proc.aaa");
    OsProcDetach();
    ASSERT_EQ(OsProcAttach("tester"), OS_MSG_OK);
    AddTask("inbox", inbox_.Keep());
    EXPECT_EQ(SeenAs(sender), "aaa");
}

TEST_F(OsMsgNamesTest, WhoJoinsAgainKnowsNoNameThatWasGivenUpMeanwhile) {
    const RawConnection sender;
    sender.Take("com.kivo.proc.zzz");
    EXPECT_EQ(SeenAs(sender), "zzz");
    OsProcDetach();
    sender.GiveUp("com.kivo.proc.zzz");
    ASSERT_EQ(OsProcAttach("tester"), OS_MSG_OK);
    AddTask("inbox", inbox_.Keep());
    EXPECT_EQ(SeenAs(sender), "");
}

TEST_F(OsMsgNamesTest, BothNamesOfAProcessAreAnsweredTo) {
    const RawConnection process;
    process.Take("com.kivo.proc.aaa");
    process.Take("com.kivo.proc.zzz");
    process.Post("tester", "inbox", 7);
    ASSERT_TRUE(inbox_.Await(1));  // so both names are known
    Post("aaa", "task", 1);
    Post("zzz", "task", 2);
    size_t received = 0;
    EXPECT_TRUE(WaitFor([&] {
        sd_bus_message* raw = nullptr;
        while (sd_bus_process(process.Get(), &raw) > 0) {
            received += raw != nullptr && sd_bus_message_is_method_call(raw, "com.kivo.Msg", "Send") > 0 ? 1 : 0;
            raw = sd_bus_message_unref(raw);
        }
        return received == 2;
    }));
}

TEST_F(OsMsgNamesTest, AnEventCountsForEachOfTheNames) {
    const OsMsgSubscription subscriptions[] = {{8, 0, "zzz", "late", "inbox"}, {8, 0, "aaa", "early", "inbox"}};
    ASSERT_EQ(OsMsgSubscribeEvent(subscriptions, 2, 0), OS_MSG_OK);
    const RawConnection source;
    source.Take("com.kivo.proc.aaa");
    source.Take("com.kivo.proc.zzz");
    source.Post("tester", "inbox", 7);
    ASSERT_TRUE(inbox_.Await(1));  // so both names are known
    Broadcast(source, "/com/kivo/task/late");
    Broadcast(source, "/com/kivo/task/early");
    ASSERT_TRUE(inbox_.Await(3));
    EXPECT_STREQ(inbox_.All()[1].envelope.srcProcName, "zzz");
    EXPECT_STREQ(inbox_.All()[2].envelope.srcProcName, "aaa");
}

// The ends of all connections come by one rule.
TEST_F(OsMsgNamesTest, SendersWithoutANameLeaveNoMatchRules) {
    const RawConnection witness;
    EXPECT_EQ(SeenAs(witness), "");
    const uint32_t before = MatchRules(witness);
    EXPECT_GT(before, 0U);
    for (int i = 0; i < 50; ++i) {
        const RawConnection sender;
        EXPECT_EQ(SeenAs(sender), "");
        EXPECT_GE(sd_bus_call_method(sender.Get(), "com.kivo.proc.tester", "/com/kivo/process",
                                     "com.kivo.Msg.Publisher", "Subscribe", nullptr, nullptr, nullptr),
                  0);
        EXPECT_EQ(MatchRules(witness), before);
    }
    EXPECT_EQ(SeenAs(witness), "");
    EXPECT_EQ(MatchRules(witness), before);
}
