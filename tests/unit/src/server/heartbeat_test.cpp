// The heartbeat task.
#include "server/heartbeat.h"

#include <algorithm>

#include "base/log.h"
#include "kivo/os_thread.h"
#include "server/start.h"
#include "support/envelope.h"
#include "support/journal_text.h"
#include "support/platform_test.h"
#include "support/records.h"

using support::Envelope;
using support::Lines;

namespace {

class HeartbeatTest : public support::PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        ASSERT_EQ(InitTimer(), 0U);  // the timer manager runs in every process that has the task
        kivo::fake::ClearJournal();
    }
};

constexpr uint32_t kRestart = 2097154;

}  // namespace

// The fake has no task "heartbeat" here: its message loop returns at once.
TEST_F(HeartbeatTest, RegistersStartsTheTimerSubscribesAndServes) {
    EXPECT_EQ(InspectHeartBeatThread(), 0U);
    EXPECT_EQ(
        support::Steps(),
        (Lines{"OsMonitorProReg(ominspect, 30000)", "OsTmrCreate(1, 5, 1)", "3 inspect_heartbeat 21: OsTmrCreate succ",
               "OsMsgSubscribeEvent(2097154, omlog, omlog, heartbeat)", "OsMsgTaskRoutineByName(heartbeat)"}));
}

TEST_F(HeartbeatTest, TheTimerRecordIsZeroButForItsFiveFields) {
    InspectHeartBeatThread();
    ASSERT_EQ(kivo::fake::Timers().size(), 1U);
    const OsTimerParam param = kivo::fake::Timers()[0];
    support::Bytes bytes = support::BytesOf(param);
    ASSERT_EQ(bytes.size(), 64 + sizeof(void*));
    EXPECT_NE(param.callback, nullptr);
    std::fill(bytes.begin() + 64, bytes.end(), static_cast<unsigned char>(0));
    support::Bytes expected(bytes.size(), 0);
    expected[0] = 1;
    expected[56] = 5;
    expected[60] = 1;
    EXPECT_EQ(bytes, expected);
}

TEST_F(HeartbeatTest, TheTimerActivatesTheProcessEachTimeItFires) {
    InspectHeartBeatThread();
    kivo::fake::ClearJournal();
    kivo::fake::Pass(16);
    EXPECT_EQ(support::Steps(), (Lines{"OsMonitorProActivate(ominspect)", "OsMonitorProActivate(ominspect)",
                                       "OsMonitorProActivate(ominspect)"}));
}

TEST_F(HeartbeatTest, GoesOnWithoutRegistration) {
    kivo::fake::Fail("OsMonitorProReg", 22);
    EXPECT_EQ(InspectHeartBeatThread(), 0U);
    EXPECT_EQ(support::Steps(),
              (Lines{"OsTmrCreate(1, 5, 1)", "3 inspect_heartbeat 21: OsTmrCreate succ",
                     "OsMsgSubscribeEvent(2097154, omlog, omlog, heartbeat)", "OsMsgTaskRoutineByName(heartbeat)"}));
}

TEST_F(HeartbeatTest, GoesOnWithoutTheProcessName) {
    kivo::fake::Fail("strcpy_s", 34);
    EXPECT_EQ(InspectHeartBeatThread(), 0U);
    EXPECT_EQ(support::Steps(),
              (Lines{"1 inspect_heartbeat 21: strcpy_s failed, err is 34", "OsMonitorProReg(, 30000)",
                     "OsTmrCreate(1, 5, 1)", "3 inspect_heartbeat 21: OsTmrCreate succ",
                     "OsMsgSubscribeEvent(2097154, omlog, omlog, heartbeat)", "OsMsgTaskRoutineByName(heartbeat)"}));
}

TEST_F(HeartbeatTest, GoesOnWithoutTimer) {
    kivo::fake::Fail("OsTmrCreate", 12);
    EXPECT_EQ(InspectHeartBeatThread(), 0U);
    EXPECT_EQ(support::Steps(),
              (Lines{"OsMonitorProReg(ominspect, 30000)", "1 inspect_heartbeat 21: OsTmrCreate fail:12",
                     "OsMsgSubscribeEvent(2097154, omlog, omlog, heartbeat)", "OsMsgTaskRoutineByName(heartbeat)"}));
}

TEST_F(HeartbeatTest, GoesOnWithoutSubscription) {
    kivo::fake::Fail("OsMsgSubscribeEvent", 0x80020002);
    EXPECT_EQ(InspectHeartBeatThread(), 0U);
    EXPECT_EQ(support::Steps(), (Lines{"OsMonitorProReg(ominspect, 30000)", "OsTmrCreate(1, 5, 1)",
                                       "3 inspect_heartbeat 21: OsTmrCreate succ",
                                       "1 inspect_heartbeat 21: OsMsgSubscribeEvent failed! ret = -2147352574",
                                       "OsMsgTaskRoutineByName(heartbeat)"}));
}

TEST_F(HeartbeatTest, ANullMessageIsRefused) {
    EXPECT_EQ(InspectHeartBeatMsgProcess(nullptr), 1U);
    EXPECT_EQ(support::Steps(), (Lines{"1 inspect_heartbeat 21: msg is NULL"}));
}

TEST_F(HeartbeatTest, AnyOtherMessageIsRefusedWithTheSameWords) {
    Envelope message(2097153);
    EXPECT_EQ(InspectHeartBeatMsgProcess(message.From("omlog", "omlog", "").Get()), 1U);
    EXPECT_EQ(support::Steps(), (Lines{"1 inspect_heartbeat 21: msg is NULL"}));
}

TEST_F(HeartbeatTest, ARestartOfTheLogProcessReopensTheLog) {
    ASSERT_EQ(InspectLogInit("om_inspect"), 0U);
    kivo::fake::ClearJournal();
    Envelope message(kRestart);
    EXPECT_EQ(InspectHeartBeatMsgProcess(message.From("omlog", "", "").Get()), 0U);
    EXPECT_EQ(support::Steps(),
              (Lines{"1 inspect_heartbeat 21: proc restart recv msg id:2097154 from omlog", "KivoOmLogClientUnInit",
                     "KivoOmLogClientInit(om_inspect)", "KivoOmLogCreateLog(512, 2, 2097152, inspect.log)"}));
}

TEST_F(HeartbeatTest, ALogThatCannotBeReopenedIsLogged) {
    kivo::fake::Fail("KivoOmLogCreateLog", 5);
    Envelope message(kRestart);
    EXPECT_EQ(InspectHeartBeatMsgProcess(message.From("omlog", "", "").Get()), 0U);
    EXPECT_EQ(support::LogLines(), (Lines{"1 inspect_heartbeat 21: proc restart recv msg id:2097154 from omlog",
                                          "1 inspect_heartbeat 21: InspectLogInit fail : 15 "}));
}

TEST_F(HeartbeatTest, ARestartOfAnotherProcessIsOnlyLogged) {
    for (const char* name : {"omlog2", "omlo", "OMLOG", ""}) {
        kivo::fake::ClearJournal();
        Envelope message(kRestart);
        EXPECT_EQ(InspectHeartBeatMsgProcess(message.From(name, "omlog", "omlog").Get()), 0U);
        EXPECT_EQ(support::Steps(),
                  (Lines{std::string("1 inspect_heartbeat 21: proc restart recv msg id:2097154 from ") + name}));
    }
}
