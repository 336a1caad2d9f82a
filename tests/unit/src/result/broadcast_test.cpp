// The events that tell of runs: their record, byte by byte.
#include <cstddef>
#include <type_traits>

#include "kivo/os_msg.h"
#include "support/journal_text.h"
#include "support/result_test.h"

using kivo::fake::Kind;
using support::Lines;

static_assert(sizeof(OsMsgEvent) == 24 + sizeof(void*));
static_assert(offsetof(OsMsgEvent, taskName) == 0);
static_assert(offsetof(OsMsgEvent, eventId) == 16);
static_assert(offsetof(OsMsgEvent, dataLen) == 20);
static_assert(offsetof(OsMsgEvent, data) == 24);
static_assert(std::is_standard_layout_v<OsMsgEvent> && std::is_trivially_copyable_v<OsMsgEvent>);

namespace {

class ResultMgrBroadcastTest : public support::ResultTest {
protected:
    void SetUp() override {
        ResultTest::SetUp();
        m_data.result = support::Result("item", "running", "begin");
    }

    // The next event of the journal.
    static void ExpectEvent(const kivo::fake::Entry& event, uint32_t id, const support::Bytes& data) {
        EXPECT_EQ(event.kind, Kind::kBroadcast);
        EXPECT_EQ(event.id, id);
        EXPECT_EQ(event.param, 1U);  // scope
        EXPECT_EQ(event.task, "iom_srv_task");
        EXPECT_EQ(event.data, data);
    }

    ResultMgrPeer m_peer{m_mgr};
    ResultData m_data;
};

}  // namespace

TEST_F(ResultMgrBroadcastTest, TheFirstRunIsEvent9WithTheNumber0ThenEvent8WithTheRecord) {
    m_peer.Start(m_data);
    const auto journal = kivo::fake::Journal();
    ASSERT_EQ(journal.size(), 2U);
    ExpectEvent(journal[0], 9, {0, 0, 0, 0});
    ExpectEvent(journal[1], 8, support::BytesOf(m_data.result));
}

TEST_F(ResultMgrBroadcastTest, TheLastEndIsEvent8WithTheRecordThenEvent9WithTheNumber1) {
    m_peer.Start(m_data);
    kivo::fake::ClearJournal();
    m_peer.Stop(m_data, false);
    const auto journal = kivo::fake::Journal();
    ASSERT_EQ(journal.size(), 2U);
    ExpectEvent(journal[0], 8, support::BytesOf(m_data.result));
    ExpectEvent(journal[1], 9, {1, 0, 0, 0});
}

TEST_F(ResultMgrBroadcastTest, ARefusalIsLoggedAndChangesNothingElse) {
    kivo::fake::Fail("OsMsgBroadcastEvent", 0x80020009, 2);
    m_peer.Start(m_data);
    EXPECT_EQ(support::Steps(), (Lines{"1 ResultMgr 13: broadcast err id[9]", "1 ResultMgr 13: broadcast err id[8]"}));
    EXPECT_EQ(m_data.startCount, 1U);
}

TEST_F(ResultMgrBroadcastTest, WithoutATaskNameNothingIsSent) {
    kivo::fake::Fail("strcpy_s", 34, 2);
    m_peer.Start(m_data);
    EXPECT_EQ(support::Steps(), Lines{});
    EXPECT_EQ(m_data.startCount, 1U);
}
