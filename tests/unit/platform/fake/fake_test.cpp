// The fake platform itself: turns, virtual time, failures on demand, scripted peers and the journal.
#include "fake/fake.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "kivo/om_inspect_engine_client.h"
#include "kivo/om_log_client.h"
#include "kivo/os_bounds.h"
#include "kivo/os_file.h"
#include "kivo/os_lock.h"
#include "kivo/os_mem.h"
#include "kivo/os_monitor.h"
#include "kivo/os_signal.h"
#include "kivo/os_thread.h"
#include "kivo/os_time.h"
#include "kivo/os_timer.h"

namespace {

using kivo::fake::Answer;
using kivo::fake::Entry;
using kivo::fake::Kind;

std::vector<std::string> g_steps;
OsRwLock g_lock;

class Fake : public testing::Test {
protected:
    void SetUp() override {
        kivo::fake::Reset();
        g_steps.clear();
    }

    void TearDown() override { EXPECT_TRUE(kivo::fake::Finish()); }

    static void Start(OsThreadEntry entry, void* argument = nullptr) {
        OsThread thread = 0;
        ASSERT_EQ(OsPthreadCreate(&thread, nullptr, entry, argument), 0U);
        ASSERT_EQ(OsPthreadDetach(thread), 0U);
    }

    static TagMsgBlock MessageTo(const char* proc, const char* task) {
        TagMsgBlock message{};
        message.msgId = 4;
        std::strncpy(message.dstProcName, proc, sizeof(message.dstProcName) - 1);
        std::strncpy(message.dstTaskName, task, sizeof(message.dstTaskName) - 1);
        return message;
    }
};

std::vector<std::string> Calls() {
    std::vector<std::string> calls;
    for (const Entry& entry : kivo::fake::Journal()) {
        calls.push_back(entry.text);
    }
    return calls;
}

// The thread's argument: how long it sleeps.
std::array<unsigned, 12> g_seconds{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};

void* SleepThenNote(void* argument) {
    const unsigned seconds = *static_cast<const unsigned*>(argument);
    sleep(seconds);
    g_steps.push_back(std::to_string(seconds));
    return nullptr;
}

TEST_F(Fake, NewThreadRunsOnlyWhenItsCreatorBlocks) {
    Start(SleepThenNote, g_seconds.data());
    EXPECT_TRUE(g_steps.empty());
    kivo::fake::Settle();
    EXPECT_EQ(g_steps, std::vector<std::string>{"0"});
    EXPECT_EQ(kivo::fake::LiveThreads(), 0U);
}

TEST_F(Fake, SleepersWakeInTheOrderOfTheirTimes) {
    for (const size_t seconds : {3U, 1U, 2U}) {
        Start(SleepThenNote, &g_seconds.at(seconds));
    }
    EXPECT_EQ(kivo::fake::LiveThreads(), 3U);
    EXPECT_TRUE(kivo::fake::Finish());
    EXPECT_EQ(g_steps, (std::vector<std::string>{"1", "2", "3"}));
    EXPECT_EQ(kivo::fake::Now(), 1700000003000U);
}

TEST_F(Fake, PassRunsThoseThatAreDueAtItsEnd) {
    Start(SleepThenNote, &g_seconds[5]);
    Start(SleepThenNote, &g_seconds[6]);
    kivo::fake::Pass(5);
    EXPECT_EQ(g_steps, std::vector<std::string>{"5"});
}

TEST_F(Fake, SettleLetsNoTimePass) {
    Start(SleepThenNote, &g_seconds[1]);
    kivo::fake::Settle();
    EXPECT_EQ(OsGetSystemTime(), 1700000000000U);
    EXPECT_EQ(kivo::fake::LiveThreads(), 1U);
}

TEST_F(Fake, FinishGivesUpAfterItsTime) {
    Start(SleepThenNote, &g_seconds[11]);
    EXPECT_FALSE(kivo::fake::Finish(10));
    EXPECT_EQ(OsGetSystemTime(), 1700000010000U);
}

TEST_F(Fake, SettingTheClockLeavesSleepsAsTheyAre) {
    Start(SleepThenNote, &g_seconds[2]);
    kivo::fake::Settle();
    kivo::fake::SetNow(5);
    EXPECT_EQ(OsGetSystemTime(), 5U);
    kivo::fake::Pass(1);
    EXPECT_TRUE(g_steps.empty());
    kivo::fake::Pass(1);
    EXPECT_EQ(g_steps, std::vector<std::string>{"2"});
    EXPECT_EQ(OsGetSystemTime(), 2005U);
}

TEST_F(Fake, FailSkipsThenFailsThenWorksAgain) {
    kivo::fake::Fail("OsSigAddSet", 7, 2, 1);
    OsSigSet set{};
    EXPECT_EQ(OsSigAddSet(&set, 17), 0U);
    EXPECT_EQ(OsSigAddSet(&set, 10), 7U);
    EXPECT_EQ(OsSigAddSet(&set, 10), 7U);
    EXPECT_EQ(OsSigAddSet(&set, 12), 0U);
    EXPECT_EQ(Calls(), (std::vector<std::string>{"OsSigAddSet(17)", "OsSigAddSet(12)"}));
    EXPECT_EQ(set.words[0], (1U << 16U) | (1U << 11U));
}

TEST_F(Fake, FailuresOfOneFunctionFollowOneAnother) {
    kivo::fake::Fail("OsMonitorProActivate", 1);
    kivo::fake::Fail("OsMonitorProActivate", 2);
    EXPECT_EQ(OsMonitorProActivate("x"), 1U);
    EXPECT_EQ(OsMonitorProActivate("x"), 2U);
    EXPECT_EQ(OsMonitorProActivate("x"), 22U);
}

TEST_F(Fake, FailedAllocationIsNull) {
    kivo::fake::Fail("OsMemMallocSetCharMon", 0);
    EXPECT_EQ(OsMemMallocSetCharMon(4, 0, "unit", 1), nullptr);
    EXPECT_EQ(OsMemGetUsage("unit").blocks, 0U);
    void* block = OsMemMallocSetCharMon(4, 0, "unit", 1);
    EXPECT_EQ(OsMemGetUsage("unit").bytes, 4U);
    OSMemTypeFreeMon(block, "unit", 2);
    EXPECT_EQ(OsMemGetUsage("unit").blocks, 0U);
}

TEST(FakeDeathTest, FailAbortsForAnUnknownFunction) {
    EXPECT_DEATH(kivo::fake::Fail("OsNoSuchThing", 1), "there is no function OsNoSuchThing that can fail");
}

TEST(FakeDeathTest, DeadlockAborts) {
    EXPECT_DEATH(
        {
            kivo::fake::Reset();
            OsRwLockInit(&g_lock, 0);
            OsRwLockRdLock(&g_lock);
            OsRwLockWrLock(&g_lock);
        },
        "deadlock: every thread waits for ever:\n  the test waits for a write lock");
}

TEST(FakeDeathTest, ResetAbortsWhileThreadsLive) {
    EXPECT_DEATH(
        {
            kivo::fake::Reset();
            OsThread thread = 0;
            OsPthreadCreate(&thread, nullptr, SleepThenNote, nullptr);
            kivo::fake::Reset();
        },
        "threads of an earlier test are alive at Reset");
}

void* WriteLocked(void* /*argument*/) {
    OsRwLockWrLock(&g_lock);
    g_steps.emplace_back("written");
    OsRwLockUnLock(&g_lock);
    return nullptr;
}

TEST_F(Fake, WriterWaitsForTheReader) {
    ASSERT_EQ(OsRwLockInit(&g_lock, 0), 0U);
    OsRwLockRdLock(&g_lock);
    Start(WriteLocked);
    kivo::fake::Pass(1);
    EXPECT_TRUE(g_steps.empty());
    OsRwLockUnLock(&g_lock);
    kivo::fake::Settle();
    EXPECT_EQ(g_steps, std::vector<std::string>{"written"});
    EXPECT_EQ(OsRwLockDestroy(&g_lock), 0U);
}

uint32_t NoteTimer(uint64_t userData) {
    g_steps.push_back(std::to_string(userData) + "@" + std::to_string(OsGetSystemTime() - 1700000000000));
    return 0;
}

TEST_F(Fake, TimersFireAsTimePasses) {
    ASSERT_EQ(OsTmrManagerInit(1, 0, 0), 0U);
    OsTimerParam param{};
    param.mode = 1;
    param.userData = 8;
    param.period = 5;
    param.repeat = 1;
    param.callback = NoteTimer;
    OsTimerId repeating = 0;
    ASSERT_EQ(OsTmrCreate(&param, &repeating), 0U);
    param.userData = 9;
    param.period = 7;
    param.repeat = 0;
    OsTimerId once = 0;
    ASSERT_EQ(OsTmrCreate(&param, &once), 0U);
    EXPECT_EQ(kivo::fake::Timers().size(), 2U);
    kivo::fake::Pass(16);
    EXPECT_EQ(g_steps, (std::vector<std::string>{"8@5000", "9@7000", "8@10000", "8@15000"}));
    EXPECT_EQ(kivo::fake::Timers().size(), 1U);
    EXPECT_EQ(OsTmrDelete(once), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(OsTmrDelete(repeating), 0U);
    kivo::fake::Pass(100);
    EXPECT_EQ(g_steps.size(), 4U);
}

TEST_F(Fake, ScriptedPeerAnswersAndIsRecorded) {
    kivo::fake::SetPeer("owner", "task", [](const Entry& message) {
        EXPECT_EQ(message.id, 4U);
        return Answer{.data = {1, 2, 3}};
    });
    const TagMsgBlock message = MessageTo("owner", "task");
    TagMsgBlock* reply = nullptr;
    ASSERT_EQ(OsMsgSynSend(&message, &reply, 300000), 0U);
    ASSERT_NE(reply, nullptr);
    EXPECT_EQ(kivo::fake::Bytes(reply->data, reply->data + reply->dataLen), (kivo::fake::Bytes{1, 2, 3}));
    OsMsgSynRespFree(reply);
    const auto journal = kivo::fake::Journal();
    ASSERT_EQ(journal.size(), 2U);
    EXPECT_EQ(journal[0].kind, Kind::kSyncSend);
    EXPECT_EQ(journal[0].proc, "owner");
    EXPECT_EQ(journal[0].task, "task");
    EXPECT_EQ(journal[0].timeout, 300000U);
    EXPECT_EQ(journal[1].text, "OsMsgSynRespFree");
}

TEST_F(Fake, ScriptedPeerMayBeLateEmptyOrGone) {
    Answer answer;
    kivo::fake::SetPeer("owner", "task", [&answer](const Entry&) { return answer; });
    const TagMsgBlock message = MessageTo("owner", "task");
    TagMsgBlock* reply = nullptr;
    answer.afterMs = 2001;
    EXPECT_EQ(OsMsgSynSend(&message, &reply, 2000), 0x8002000bU);
    EXPECT_EQ(kivo::fake::Now(), 1700000002000U);
    EXPECT_EQ(reply, nullptr);
    answer.afterMs = 2000;
    EXPECT_EQ(OsMsgSynSend(&message, &reply, 2000), 0U);
    EXPECT_EQ(kivo::fake::Now(), 1700000004000U);
    ASSERT_NE(reply, nullptr);
    EXPECT_EQ(reply->data, nullptr);
    EXPECT_EQ(reply->dataLen, 0U);
    OsMsgSynRespFree(reply);
    answer = {};
    answer.nullResponse = true;
    EXPECT_EQ(OsMsgSynSend(&message, &reply, 2000), 0U);
    EXPECT_EQ(reply, nullptr);
    answer = {};
    answer.code = 0x8002000a;
    EXPECT_EQ(OsMsgSynSend(&message, &reply, 2000), 0x8002000aU);
    const TagMsgBlock otherTask = MessageTo("owner", "other");
    EXPECT_EQ(OsMsgSynSend(&otherTask, &reply, 2000), 0x80020009U);
    kivo::fake::RemovePeer("owner", "task");
    EXPECT_EQ(OsMsgSynSend(&message, &reply, 2000), 0x80020008U);
}

TEST_F(Fake, HandMadeEnvelopeCanBeAnswered) {
    TagMsgBlock message{};
    message.msgType = 1;
    message.msgId = 37;
    EXPECT_EQ(OsMsgSynSendResp(&message, "ab", 2), 0U);
    const auto journal = kivo::fake::Journal();
    ASSERT_EQ(journal.size(), 1U);
    EXPECT_EQ(journal[0].kind, Kind::kReply);
    EXPECT_EQ(journal[0].id, 37U);
    EXPECT_EQ(journal[0].data, (kivo::fake::Bytes{'a', 'b'}));
    message.msgType = 0;
    EXPECT_EQ(OsMsgSynSendResp(&message, nullptr, 0), 0x8002000fU);
}

TEST_F(Fake, LogLinesKeepHandleUnitAndText) {
    KivoOmLogModuleLogRecord(1, 7, "unit", 18, 99, "%s", "text ");
    KivoOmLogGeneralLogRecord(3, 0, "unit", 100, "%d", 5);
    const auto journal = kivo::fake::Journal();
    ASSERT_EQ(journal.size(), 2U);
    EXPECT_EQ(journal[0].kind, Kind::kLog);
    EXPECT_EQ(journal[0].level, 1U);
    EXPECT_EQ(journal[0].handle, 7U);
    EXPECT_EQ(journal[0].unit, "unit");
    EXPECT_EQ(journal[0].module, 18U);
    EXPECT_EQ(journal[0].line, 99U);
    EXPECT_EQ(journal[0].text, "text ");
    EXPECT_EQ(journal[1].module, 256U);
    EXPECT_EQ(journal[1].text, "5");
}

uint32_t NoteMessage(TagMsgBlock* message) {
    g_steps.push_back(std::string(message->srcProcName) + ":" + std::to_string(message->msgId));
    return OsMsgSynSendResp(message, nullptr, 0);
}

uint32_t EnterLoop() {
    return OsMsgTaskRoutineByName("iom_srv_task");
}

void* RunServer(void* /*argument*/) {
    const OsTaskDescriptor task{"iom_srv_task", 0, 512, NoteMessage, EnterLoop};
    g_steps.push_back("returned " + std::to_string(OsTaskRun("ominspect", &task, 1)));
    return nullptr;
}

TEST_F(Fake, TaskRunnerServesUntilItIsDetached) {
    Start(RunServer);
    kivo::fake::Settle();
    const TagMsgBlock message = MessageTo("ominspect", "iom_srv_task");
    TagMsgBlock* reply = nullptr;
    EXPECT_EQ(OsMsgSynSend(&message, &reply, 1000), 0U);
    OsMsgSynRespFree(reply);
    EXPECT_EQ(kivo::fake::LiveThreads(), 2U);
    OsProcRequestDetach();
    EXPECT_TRUE(kivo::fake::Finish());
    EXPECT_EQ(g_steps, (std::vector<std::string>{"ominspect:4", "returned 0"}));
}

TEST_F(Fake, BorrowedFunctionsFailOnDemand) {
    kivo::fake::Fail("memcpy_s", 34);
    kivo::fake::Fail("sprintf_s", 1);
    kivo::fake::Fail("OsOpenDir", 2);
    kivo::fake::Fail("OsRemove", 13);
    char text[4] = "abc";
    EXPECT_EQ(memcpy_s(text, 4, "xyz", 4), 34);
    EXPECT_EQ(sprintf_s(text, 4, "%d", 5), -1);
    EXPECT_STREQ(text, "abc");
    EXPECT_EQ(OsOpenDir("/"), nullptr);
    EXPECT_EQ(OsRemove("/nowhere/at/all"), 13U);
    EXPECT_EQ(memcpy_s(text, 4, "xyz", 4), 0);
    EXPECT_STREQ(text, "xyz");
    EXPECT_EQ(sprintf_s(text, 4, "%d", 123), 3);
    EXPECT_STREQ(text, "123");
    EXPECT_EQ(sprintf_s(text, 4, "%d", 1234), -1);
    OsDir* dir = OsOpenDir("/");
    ASSERT_NE(dir, nullptr);
    EXPECT_EQ(OsCloseDir(dir), 0U);
}

uint32_t ServeItem(const char* /*itemName*/, const char* /*request*/, tagKivoOmInspectionResult* /*result*/) {
    return 0;
}

TEST_F(Fake, CallsAreRecordedAsTexts) {
    OsTmrManagerInit(1, 0, 0);
    OsTimerParam timer{};
    timer.mode = 1;
    timer.period = 5;
    timer.repeat = 1;
    timer.callback = NoteTimer;
    OsTimerId id = 0;
    OsTmrCreate(&timer, &id);
    OsTmrDelete(id);
    OsSigSet set{};
    OsSigEmptySet(&set);
    OsPthreadSigmask(0, &set, nullptr);
    OsMsgSetLogLevel(3);
    OsMsgRegLogFunc(nullptr);
    const OsMonitorProInfo info{"ominspect", 30000};
    OsMonitorProReg(&info);
    OsMonitorProActivate("ominspect");
    const OsMsgSubscription subscription{2097154, 0, "omlog", "omlog", "heartbeat"};
    OsMsgSubscribeEvent(&subscription, 1, 0);
    KivoOmLogClientInit("om_inspect", 10);
    const KivoOmLogCreation creation{512, 2, 2097152, "inspect.log"};
    KivoOmLogHandle handle = 0;
    KivoOmLogCreateLog(&creation, &handle);
    KivoOmLogClientUnInit();
    InspectClientInit("inside_check");
    const InspectHandlerRecord item{"item", ServeItem, 1000};
    InspectRegHandler(&item, 1);
    OsMsgTaskRoutineByName("iom_srv_task");
    EXPECT_EQ(handle, 1U);
    EXPECT_EQ(Calls(), (std::vector<std::string>{
                           "OsTmrManagerInit(1, 0, 0)",
                           "OsTmrCreate(1, 5, 1)",
                           "OsTmrDelete(1)",
                           "OsSigEmptySet",
                           "OsPthreadSigmask(0)",
                           "OsMsgSetLogLevel(3)",
                           "OsMsgRegLogFunc",
                           "OsMonitorProReg(ominspect, 30000)",
                           "OsMonitorProActivate(ominspect)",
                           "OsMsgSubscribeEvent(2097154, omlog, omlog, heartbeat)",
                           "KivoOmLogClientInit(om_inspect)",
                           "KivoOmLogCreateLog(512, 2, 2097152, inspect.log)",
                           "KivoOmLogClientUnInit",
                           "InspectClientInit(inside_check)",
                           "InspectRegHandler(item, 1000)",
                           "OsMsgTaskRoutineByName(iom_srv_task)",
                       }));
    ASSERT_EQ(kivo::fake::RegisteredHandlers().size(), 1U);
    EXPECT_EQ(kivo::fake::RegisteredHandlers()[0].handler, ServeItem);
}

TEST_F(Fake, BusNeedsNoJoiningUntilThatIsRequired) {
    const TagMsgBlock message = MessageTo("nobody", "task");
    const OsMsgEvent event{"iom_srv_task", 9, 0, nullptr};
    EXPECT_EQ(OsMsgAsynSend(&message), 0U);
    EXPECT_EQ(OsMsgBroadcastEvent(&event, 1), 0U);
    kivo::fake::RequireAttach();
    EXPECT_EQ(OsMsgAsynSend(&message), 0x80020004U);
    EXPECT_EQ(OsMsgBroadcastEvent(&event, 1), 0x80020004U);
    const auto journal = kivo::fake::Journal();
    ASSERT_EQ(journal.size(), 2U);
    EXPECT_EQ(journal[1].kind, Kind::kBroadcast);
    EXPECT_EQ(journal[1].id, 9U);
    EXPECT_EQ(journal[1].task, "iom_srv_task");
}

TEST_F(Fake, KilledProcessesThreadsEnd) {
    kivo::fake::StartProcess([] {
        g_steps.push_back("attached " + std::to_string(OsProcAttach("other")));
        OsSleep(1000000);
        g_steps.push_back("attached " + std::to_string(OsProcAttach("other")));
    });
    kivo::fake::Settle();
    kivo::fake::KillProcess("other");
    EXPECT_TRUE(kivo::fake::Finish(0));
    EXPECT_EQ(g_steps, (std::vector<std::string>{"attached 0", "attached 2147614727"}));  // 0x80020007: no bus
}

TEST(FakeDeathTest, WaitWithoutAnEndAbortsWhileTimersRun) {
    EXPECT_DEATH(
        {
            kivo::fake::Reset();
            OsTmrManagerInit(1, 0, 0);
            OsTimerParam timer{};
            timer.mode = 1;
            timer.period = 86400;
            timer.repeat = 1;
            timer.callback = NoteTimer;
            OsTimerId id = 0;
            OsTmrCreate(&timer, &id);
            OsRwLockInit(&g_lock, 0);
            OsRwLockRdLock(&g_lock);
            OsRwLockWrLock(&g_lock);
        },
        "the test waits for ever while others run");
}

TEST(FakeDeathTest, KillingAnUnknownProcessAborts) {
    EXPECT_DEATH(
        {
            kivo::fake::Reset();
            kivo::fake::KillProcess("nobody");
        },
        "there is no process nobody");
}

}  // namespace
