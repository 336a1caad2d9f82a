// A process that sends more than another can handle.
#include <gtest/gtest.h>

#include <algorithm>

#include "bus_test.h"
#include "support/raw_connection.h"

using namespace support;

namespace {

constexpr uint32_t kFlood = 1;
constexpr uint32_t kFirst = 2;
constexpr uint32_t kOther = 3;
constexpr uint32_t kMessages = 5000;
constexpr uint32_t kDepth = 512;
constexpr uint32_t kShare = kDepth - kDepth / 8;

class OsMsgFloodTest : public BusTest {
protected:
    void SetUp() override {
        BusTest::SetUp();
        OsMsgRegLogFunc([](const char*) {});  // lost messages are logged
        AddTask(
            "task",
            [inbox = inbox_, gate = gate_](const TagMsgBlock& message) {
                inbox.Put(message);
                if (message.msgId == kFirst) {
                    gate.Pass();
                }
                if (message.msgType == 1) {
                    Answer(message);
                }
                return 0U;
            },
            kDepth);
        Post("tester", "task", kFirst);
        ASSERT_TRUE(gate_.Reached());
    }

    void TearDown() override {
        BusTest::TearDown();
        OsMsgRegLogFunc(nullptr);
    }

    static void Flood(const RawConnection& sender) {
        for (uint32_t i = 0; i < kMessages; ++i) {
            sender.Post("tester", "task", kFlood);
        }
        ASSERT_TRUE(WaitFor([] { return OsMsgDroppedCount("task") == kMessages - kShare; }));
    }

    Inbox inbox_;
    Gate gate_;
};

}  // namespace

TEST_F(OsMsgFloodTest, IsReadWhileTheHandlerIsBusyAndBoundedByTheShareOfOneSender) {
    Flood(RawConnection());
    gate_.Open();
    ASSERT_TRUE(inbox_.Await(1 + kShare));
    RawConnection().Post("tester", "task", kOther);
    ASSERT_TRUE(inbox_.Await(2 + kShare));
    EXPECT_EQ(OsMsgDroppedCount("task"), kMessages - kShare);
}

TEST_F(OsMsgFloodTest, HoldsUpNobodyElse) {
    const RawConnection flooder;
    Flood(flooder);
    const RawConnection other;  // which nobody has heard of before
    other.Post("tester", "task", kOther);
    const Inbox witness;
    AddTask("witness", witness.Keep());
    other.Post("tester", "witness", kOther);
    ASSERT_TRUE(witness.Await(1));  // so the message before it is in its queue
    gate_.Open();
    ASSERT_TRUE(inbox_.Await(2 + kShare));
    const std::vector<uint32_t> ids = inbox_.Ids();
    EXPECT_LE(std::find(ids.begin(), ids.end(), kOther) - ids.begin(), 2);
}
