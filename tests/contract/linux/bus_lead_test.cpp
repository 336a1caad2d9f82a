// Which thread of a process reads the bus.
#include <gtest/gtest.h>

#include <string>

#include "bus_test.h"
#include "linux/thread_status.h"

using namespace support;

namespace {

class OsMsgLeadTest : public BusTest {};

unsigned long WakeUpsOfTheStandby() {
    return std::stoul(ThreadStatus("kivo_standby", "voluntary_ctxt_switches"));
}

}  // namespace

// A lead that nobody takes would wake the standby, and what arrives meanwhile would wait for it.
TEST_F(OsMsgLeadTest, AThreadThatIsNoTasksHandsTheLeadToATaskThatWaits) {
    const Peer peer("peer");
    AddTask("waiting", Inbox().Keep());
    const unsigned long before = WakeUpsOfTheStandby();
    for (int i = 0; i < 2000; ++i) {
        EXPECT_EQ(Ask("peer", "echo").result, OS_MSG_OK);
    }
    constexpr unsigned long kUntilTheTaskWaits = 10;
    EXPECT_LE(WakeUpsOfTheStandby() - before, kUntilTheTaskWaits);
}
