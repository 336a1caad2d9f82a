// What a message of the library is on the bus.
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <cstring>
#include <string>
#include <vector>

#include "bus_test.h"
#include "support/raw_connection.h"

using namespace support;

namespace {

using OsMsgWireTest = BusTest;

// The next messages to the connection, each as "id param source task, reply task: payload".
std::vector<std::string> Taken(const RawConnection& connection, size_t count) {
    std::vector<std::string> received;
    EXPECT_TRUE(WaitFor([&] {
        sd_bus_message* raw = nullptr;
        EXPECT_GE(sd_bus_process(connection.Get(), &raw), 0);
        const RawMessage message(raw);
        if (const auto sent = ReadSent(raw)) {
            received.push_back(std::to_string(sent->id) + " " + std::to_string(sent->param) + " " + sent->sourceTask +
                               ", " + sent->replyTask + ": " + sent->payload);
        }
        return received.size() == count;
    }));
    return received;
}

}  // namespace

TEST_F(OsMsgWireTest, AMessageNamesItsSendersTaskForAnswersUnlessAnotherIsNamed) {
    const RawConnection receiver;
    receiver.Take("com.kivo.proc.receiver");
    TagMsgBlock message = Envelope("receiver", "inbox", 18, "12345");
    message.param = 7;
    AddTask("task", [message](const TagMsgBlock& /*request*/) {
        TagMsgBlock other = message;
        std::memcpy(other.replyTaskName, "other", 6);
        EXPECT_EQ(OsMsgAsynSend(&message), 0U);
        EXPECT_EQ(OsMsgAsynSend(&other), 0U);
        return 0U;
    });
    Post("tester", "task");
    EXPECT_EQ(Taken(receiver, 2), (std::vector<std::string>{"18 7 task, task: 12345", "18 7 task, other: 12345"}));
    EXPECT_EQ(OsMsgAsynSend(&message), 0U);
    EXPECT_EQ(Taken(receiver, 1), std::vector<std::string>{"18 7 , : 12345"}) << "from a thread that runs none";
}
