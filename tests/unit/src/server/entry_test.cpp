// The two ways to start the server: what is done in which order, and what the task runner is given.
#include "ominspect/entry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "base/log.h"
#include "base/serving.h"
#include "kivo/os_msg.h"
#include "kivo/os_thread.h"
#include "server/dispatch.h"
#include "server/heartbeat.h"
#include "server/start.h"
#include "support/envelope.h"
#include "support/journal_text.h"
#include "support/platform_test.h"

using support::Lines;

int InspectServerMain();  // main of the server's process

namespace {

std::vector<OsTaskDescriptor> g_descriptors;
bool g_initThrows = false;
bool g_wasServing = false;  // when the result table was prepared
int g_flushes = 0;          // of standard output

class EntryTest : public support::PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        g_descriptors.clear();
        g_initThrows = false;
        g_wasServing = false;
    }

    // Lets the server run until all its threads wait, then makes its process leave the bus.
    static void StopOnceItServes() {
        OsThread thread{};
        ASSERT_EQ(OsPthreadCreate(&thread, nullptr, DetachLater, nullptr), 0U);
        ASSERT_EQ(OsPthreadDetach(thread), 0U);
        kivo::fake::ClearJournal();
    }

private:
    static void* DetachLater(void* /*argument*/) {
        OsSleep(1);
        OsProcRequestDetach();
        return nullptr;
    }
};

void ExpectDescriptor(const OsTaskDescriptor& task, const std::string& name, uint32_t first, uint32_t second,
                      OsTaskHandler handler, OsTaskEntry entry) {
    char padded[24] = {};
    std::copy(name.begin(), name.end(), static_cast<char*>(padded));
    EXPECT_EQ(std::memcmp(task.name, padded, 24), 0) << name;
    EXPECT_EQ(task.reserved, first);
    EXPECT_EQ(task.queueDepth, second);
    EXPECT_EQ(task.handler, handler);
    EXPECT_EQ(task.entry, entry);
}

bool Contains(const Lines& lines, const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

const Lines kStartUp{"OsSigEmptySet", "OsSigAddSet(17)", "OsSigAddSet(10)", "OsPthreadSigmask(0)",
                     "OsTmrManagerInit(1, 0, 0)"};

const Lines kLogOpened{"KivoOmLogClientInit(om_inspect)", "KivoOmLogCreateLog(512, 2, 2097152, inspect.log)"};

const Lines kDefaultsTaken{"1 InspectConfigMgr 20: xml read err, error code : 3. use default config.",
                           "2 InspectConfigMgr 20: use default config InspectItemList."};
const Lines kOwnItem{"3 inspect_inside_linux 24: >>> InitInspectInside \n", "InspectClientInit(inside_check)",
                     "InspectRegHandler(kivo_om_get_log_dir, 1000)"};

Lines Joined(const std::vector<Lines>& parts) {
    Lines all;
    for (const Lines& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

}  // namespace

// Calls of these functions are led here (linker option --wrap) and then to the functions themselves.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): the linker makes the names
extern "C" {

uint32_t __real_OsTaskRun(const char* procName, const OsTaskDescriptor* tasks, uint32_t count);
uint32_t __wrap_OsTaskRun(const char* procName, const OsTaskDescriptor* tasks, uint32_t count) {
    g_descriptors.assign(tasks, tasks + count);
    return __real_OsTaskRun(procName, tasks, count);
}

int __real_fflush(std::FILE* stream);
int __wrap_fflush(std::FILE* stream) {
    g_flushes += stream == stdout ? 1 : 0;
    return __real_fflush(stream);
}

void __real__ZN9ResultMgr4InitEv(void* self);
void __wrap__ZN9ResultMgr4InitEv(void* self) {
    InspectModuleLog(3, "test", 0, 0, "ResultMgr::Init");
    g_wasServing = Serving::IsUnderWay();
    if (g_initThrows) {
        throw std::bad_alloc();
    }
    __real__ZN9ResultMgr4InitEv(self);
}

void __real__ZN7Inspect7InitDotEv();
void __wrap__ZN7Inspect7InitDotEv() {
    InspectModuleLog(3, "test", 0, 0, "Inspect::InitDot");
    __real__ZN7Inspect7InitDotEv();
}
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

TEST_F(EntryTest, MainStartsTheTimersThenBothTasks) {
    kivo::fake::Fail("OsMsgTaskRoutineByName", 1, 2);
    EXPECT_EQ(InspectServerMain(), 0);
    Lines expected = kStartUp;
    expected.insert(expected.end(), {"OsMsgSetLogLevel(3)", "OsTaskRun(ominspect, 2)"});
    Lines steps = support::Steps();
    steps.resize(expected.size());
    EXPECT_EQ(steps, expected);
}

TEST_F(EntryTest, MainHandsOverTheProcessDescriptors) {
    kivo::fake::Fail("OsTaskRun", 5);
    InspectServerMain();
    ASSERT_EQ(g_descriptors.size(), 2U);
    ExpectDescriptor(g_descriptors[0], "iom_srv_task", 0, 512, InspectMsgProcess, InspectTaskEntry);
    ExpectDescriptor(g_descriptors[1], "heartbeat", 0, 64, InspectHeartBeatMsgProcess, InspectHeartBeatThread);
}

TEST_F(EntryTest, MainGivesTheTaskRunnersResult) {
    kivo::fake::Fail("OsTaskRun", 0x80020007);
    EXPECT_EQ(static_cast<uint32_t>(InspectServerMain()), 0x80020007U);
}

TEST_F(EntryTest, MainGoesOnWithoutTimers) {
    kivo::fake::Fail("OsSigEmptySet", 22);
    kivo::fake::Fail("OsTaskRun", 5);
    EXPECT_EQ(InspectServerMain(), 5);
    EXPECT_EQ(support::Steps(), (Lines{"1 inspect_server 18: OsSigEmptySet fail:22", "OsMsgSetLogLevel(3)"}));
}

TEST_F(EntryTest, HostedStartsTheTimersThenTheOneTask) {
    kivo::fake::Fail("OsMsgTaskRoutineByName", 1);
    EXPECT_EQ(KivoInspectTaskMain(), 0U);
    Lines expected = kStartUp;
    expected.insert(expected.end(), {"OsMsgRegLogFunc", "OsTaskRun(ominspect, 1)"});
    Lines steps = support::Steps();
    steps.resize(expected.size());
    EXPECT_EQ(steps, expected);
}

TEST_F(EntryTest, HostedHandsOverTheHostedDescriptor) {
    kivo::fake::Fail("OsTaskRun", 5);
    KivoInspectTaskMain();
    ASSERT_EQ(g_descriptors.size(), 1U);
    ExpectDescriptor(g_descriptors[0], "iom_srv_task", 0, 512, InspectMsgProcess, InspectThreadEntry);
}

TEST_F(EntryTest, HostedReturns0WhateverTheTaskRunnerSaid) {
    kivo::fake::Fail("OsSigEmptySet", 22);
    kivo::fake::Fail("OsTaskRun", 0x80020007);
    EXPECT_EQ(KivoInspectTaskMain(), 0U);
    EXPECT_EQ(support::Steps(), (Lines{"1 inspect_server 18: OsSigEmptySet fail:22", "OsMsgRegLogFunc"}));
}

TEST_F(EntryTest, TaskEntryInitialisesAllThenServes) {
    EXPECT_EQ(InspectTaskEntry(), 0U);
    EXPECT_EQ(support::Steps(), Joined({{"1 inspect_server 18: InspectTaskEntry start... "},
                                        kLogOpened,
                                        {"OsPthreadDetach", "3 test 0: ResultMgr::Init"},  // the backup's thread
                                        kDefaultsTaken,
                                        kOwnItem,
                                        {"3 test 0: Inspect::InitDot", "OsMsgTaskRoutineByName(iom_srv_task)"}}));
}

TEST_F(EntryTest, ThreadEntryInitialisesAllButTheUsageReportsThenServes) {
    EXPECT_EQ(InspectThreadEntry(), 0U);
    EXPECT_EQ(support::Steps(), Joined({{"3 inspect_server_thread 25: InspectThreadEntry start... "},
                                        kLogOpened,
                                        {"3 test 0: ResultMgr::Init"},
                                        kDefaultsTaken,
                                        kOwnItem,
                                        {"OsMsgTaskRoutineByName(iom_srv_task)"}}));
}

// What the task uses must outlast it.
TEST_F(EntryTest, EitherTaskServesFromItsEntryToItsEnd) {
    for (const OsTaskEntry entry : {InspectTaskEntry, InspectThreadEntry}) {
        g_wasServing = false;
        EXPECT_FALSE(Serving::IsUnderWay());
        entry();
        EXPECT_TRUE(g_wasServing);
        EXPECT_FALSE(Serving::IsUnderWay());
    }
}

TEST_F(EntryTest, OnlyTheProcessFormStartsTheSystemLogBackup) {
    InspectThreadEntry();
    EXPECT_EQ(kivo::fake::LiveThreads(), 0U);
    InspectTaskEntry();
    kivo::fake::ClearJournal();
    kivo::fake::Pass(60);
    kivo::fake::Settle();
    EXPECT_EQ(support::LogLines(), Lines{"3 InspectFile 15: Debug version no need to backup wylog"});
}

TEST_F(EntryTest, TaskEntryServesAfterAStartThatRanOutOfMemory) {
    g_initThrows = true;
    EXPECT_EQ(InspectTaskEntry(), 0U);
    EXPECT_EQ(support::Steps(), Joined({{"1 inspect_server 18: InspectTaskEntry start... "},
                                        kLogOpened,
                                        {"OsPthreadDetach", "3 test 0: ResultMgr::Init",
                                         "1 inspect_server 18: start given up: std::bad_alloc",
                                         "OsMsgTaskRoutineByName(iom_srv_task)"}}));
}

TEST_F(EntryTest, ThreadEntryServesAfterAStartThatRanOutOfMemory) {
    g_initThrows = true;
    EXPECT_EQ(InspectThreadEntry(), 0U);
    EXPECT_EQ(support::Steps(),
              Joined({{"3 inspect_server_thread 25: InspectThreadEntry start... "},
                      kLogOpened,
                      {"3 test 0: ResultMgr::Init", "1 inspect_server_thread 25: start given up: std::bad_alloc",
                       "OsMsgTaskRoutineByName(iom_srv_task)"}}));
}

TEST_F(EntryTest, TheServerServesWithoutLogAndWithoutItsOwnItem) {
    kivo::fake::Fail("KivoOmLogClientInit", 22);
    kivo::fake::Fail("InspectClientInit", 0x80020006);
    EXPECT_EQ(InspectTaskEntry(), 0U);
    EXPECT_EQ(support::Steps().back(), "OsMsgTaskRoutineByName(iom_srv_task)");
}

TEST_F(EntryTest, TheProcessServesMessagesUntilItLeavesTheBus) {
    StopOnceItServes();
    kivo::fake::StartProcess([] {
        ASSERT_EQ(OsProcAttach("client"), OS_MSG_OK);
        support::Envelope message(7);
        TagMsgBlock* reply = nullptr;
        EXPECT_EQ(OsMsgSynSend(message.Get(), &reply, 500), OS_MSG_OK);
        ASSERT_NE(reply, nullptr);
        EXPECT_EQ(reply->dataLen, 4U);
        OsMsgSynRespFree(reply);
        OsProcDetach();
    });
    EXPECT_EQ(InspectServerMain(), 0);
    const Lines steps = support::Steps();
    EXPECT_TRUE(Contains(steps, "OsMonitorProReg(ominspect, 30000)"));
    EXPECT_TRUE(Contains(steps, "reply 7: 2"));
}

TEST_F(EntryTest, TheHostedServerPrintsTheMessageLayersLines) {
    StopOnceItServes();
    kivo::fake::StartProcess([] {
        ASSERT_EQ(OsProcAttach("client"), OS_MSG_OK);
        support::Envelope message(9999);
        for (int sent = 0; sent < 449; ++sent) {  // one more than a sender gets of the queue: the message layer tells
            EXPECT_EQ(OsMsgAsynSend(message.Asynchronous().Get()), OS_MSG_OK);
        }
        OsProcDetach();
    });
    testing::internal::CaptureStdout();
    g_flushes = 0;
    EXPECT_EQ(KivoInspectTaskMain(), 0U);
    EXPECT_EQ(g_flushes, 1);  // a host may have led its output into a file
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_NE(printed.find("queue full"), std::string::npos) << printed;
    EXPECT_EQ(printed.find('\n'), printed.size() - 1);  // one line, ended
}
