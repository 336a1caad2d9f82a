// Refused callers: this program has a permission test of its own, which refuses user 4294967295 and 66.
#include <gtest/gtest.h>

#include "server/dispatch.h"
#include "support/envelope.h"
#include "support/journal_text.h"
#include "support/platform_test.h"

using support::Envelope;
using support::Lines;

bool InspectCheckPackagesValidByUid(uint32_t uid) noexcept {
    return uid != 4294967295U && uid != 66;
}

namespace {

using InspectMsgProcessRefusalTest = support::PlatformTest;

}  // namespace

TEST_F(InspectMsgProcessRefusalTest, OfASynchronousMessageIsLoggedAndNotAnswered) {
    Envelope message(7, "item");
    message.Get()->uid = 4294967295U;
    EXPECT_EQ(InspectMsgProcess(message.Get()), 1U);
    EXPECT_EQ(support::Steps(), (Lines{"1 inspect_server 18: [InspectMsgProcess]Permission deny. Inspect Server Check "
                                       "srcPorcName[client] uid:[-1] msgId:[7]."}));
}

TEST_F(InspectMsgProcessRefusalTest, OfAnAsynchronousMessageIsLogged) {
    Envelope message(2, "item");
    message.Asynchronous().From("intruder", "t", "t").Get()->uid = 66;
    EXPECT_EQ(InspectMsgProcess(message.Get()), 1U);
    EXPECT_EQ(support::Steps(), (Lines{"1 inspect_server 18: [InspectMsgProcess]Permission deny. Inspect Server Check "
                                       "srcPorcName[intruder] uid:[66] msgId:[2]."}));
}

TEST_F(InspectMsgProcessRefusalTest, DoesNotTouchOthers) {
    EXPECT_EQ(InspectMsgProcess(Envelope(7).Get()), 0U);
    EXPECT_EQ(support::Steps(),
              (Lines{"3 inspect_server 18: inspect server recv msg id 7 from [client:cli_task]", "reply 7: 2"}));
}
