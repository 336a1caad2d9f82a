// The events that the server broadcasts.
#include "result/broadcast.h"

#include <cstddef>
#include <type_traits>

#include "kivo/os_msg.h"
#include "support/journal_text.h"
#include "support/platform_test.h"
#include "support/records.h"

using kivo::fake::Kind;
using support::Lines;

static_assert(sizeof(OsMsgEvent) == 32);
static_assert(offsetof(OsMsgEvent, taskName) == 0);
static_assert(offsetof(OsMsgEvent, eventId) == 16);
static_assert(offsetof(OsMsgEvent, dataLen) == 20);
static_assert(offsetof(OsMsgEvent, data) == 24);
static_assert(std::is_standard_layout_v<OsMsgEvent> && std::is_trivially_copyable_v<OsMsgEvent>);

namespace {

using Broadcasts = support::PlatformTest;

}  // namespace

TEST_F(Broadcasts, ARunIsEvent8WithTheRecord) {
    const tagKivoOmInspectionResult result = support::Result("item", "running", "begin");
    BroadcastRun(result);
    const auto journal = kivo::fake::Journal();
    ASSERT_EQ(journal.size(), 1U);
    EXPECT_EQ(journal[0].kind, Kind::kBroadcast);
    EXPECT_EQ(journal[0].id, 8U);
    EXPECT_EQ(journal[0].param, 1U);  // scope
    EXPECT_EQ(journal[0].task, "iom_srv_task");
    EXPECT_EQ(journal[0].data, support::BytesOf(result));
}

TEST_F(Broadcasts, BusyIsEvent9WithTheNumber0) {
    BroadcastBusy();
    const auto journal = kivo::fake::Journal();
    ASSERT_EQ(journal.size(), 1U);
    EXPECT_EQ(journal[0].kind, Kind::kBroadcast);
    EXPECT_EQ(journal[0].id, 9U);
    EXPECT_EQ(journal[0].param, 1U);  // scope
    EXPECT_EQ(journal[0].task, "iom_srv_task");
    EXPECT_EQ(journal[0].data, (support::Bytes{0, 0, 0, 0}));
}

TEST_F(Broadcasts, IdleIsEvent9WithTheNumber1) {
    BroadcastIdle();
    const auto journal = kivo::fake::Journal();
    ASSERT_EQ(journal.size(), 1U);
    EXPECT_EQ(journal[0].id, 9U);
    EXPECT_EQ(journal[0].data, (support::Bytes{1, 0, 0, 0}));
}

TEST_F(Broadcasts, ARefusalIsLogged) {
    kivo::fake::Fail("OsMsgBroadcastEvent", 0x80020009, 2);
    BroadcastRun({});
    BroadcastIdle();
    EXPECT_EQ(support::Steps(), (Lines{"1 ResultMgr 13: broadcast err id[8]", "1 ResultMgr 13: broadcast err id[9]"}));
}
