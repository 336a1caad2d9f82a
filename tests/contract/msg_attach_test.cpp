// Joining and leaving the bus, and creating tasks.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "bus_test.h"
#include "thread_starter.h"

namespace {

using support::AddTask;
using support::Ask;
using support::BusTest;
using support::DetachedTest;
using support::Envelope;
using support::Gate;
using support::Inbox;
using support::Peer;
using support::Post;
using support::WaitFor;

support::Handler Echo() {
    return [](const TagMsgBlock& message) { return OsMsgSynSendResp(&message, message.data, message.dataLen); };
}

// A task descriptor's name may lack its NUL here.
OsTaskDescriptor TaskNamed(std::string_view name) {
    return support::Describe(name, Echo());
}

uint32_t Create(std::string_view name) {
    const OsTaskDescriptor task = TaskNamed(name);
    return OsTaskCreate(&task);
}

class OsProcAttachTest : public DetachedTest {};
class OsTaskCreateTest : public BusTest {};
class OsProcDetachTest : public BusTest {};

// Names that are as good as any other, blanks, dots and all.
const char* const kGoodNames[] = {
    "a",
    "iom_srv_task",
    "123456789012345",
    "9",
    "a b",
    "a.b",
    "a/b",
    "/",
    "-",
    ".",
    " ",
    "com.kivo",
    "_5f",
    "%s",
    "\"\\'",
    "pr\xc3\xbcgeln",
    "\xe6\xa3\x80\xe6\x9f\xa5",
    "a\nb",
    // The ends of what each number of bytes can say.
    "\xc2\x80",
    "\xdf\xbf",
    "\xe0\xa0\x80",
    "\xed\x9f\xbf",
    "\xee\x80\x80",
    "\xef\xbf\xbd",
    "\xf0\x90\x80\x80",
    "\xf4\x8f\xbf\xbd",
};

// Too long, empty, or no UTF-8 text.
const char* const kBadNames[] = {"",
                                 "1234567890123456",
                                 "12345678901234567890123",
                                 "\xff",
                                 "a\xc3",
                                 "\xc0\xaf",
                                 "\xed\xa0\x80",
                                 "\xc1\xbf",
                                 "\xe0\x9f\xbf",
                                 "\xed\xbf\xbf",
                                 "\xf0\x8f\xbf\xbf",
                                 "\xf4\x90\x80\x80",
                                 "\xf5\x80\x80\x80"};

}  // namespace

TEST_F(OsProcAttachTest, WithoutTheBusNothingIsSent) {
    const TagMsgBlock message = Envelope("tester", "task");
    EXPECT_EQ(Ask(message, support::kShort).result, 0x80020004U);
    EXPECT_EQ(OsMsgAsynSend(&message), 0x80020004U);
    TagMsgBlock request{};
    request.msgType = 1;
    EXPECT_EQ(OsMsgSynSendResp(&request, nullptr, 0), 0x80020004U);
    const OsMsgEvent event{"task", 8, 0, nullptr};
    EXPECT_EQ(OsMsgBroadcastEvent(&event, 1), 0x80020004U);
    const OsMsgSubscription subscription{8, 0, "other", "task", "task"};
    EXPECT_EQ(OsMsgSubscribeEvent(&subscription, 1, 0), 0x80020004U);
    EXPECT_EQ(Create("task"), 0x80020004U);
    EXPECT_EQ(OsMsgTaskRoutineByName("task"), 0x80020004U);
    EXPECT_EQ(OsMsgDroppedCount("task"), 0U);
}

TEST_F(OsProcAttachTest, TheSameHoldsAfterLeaving) {
    ASSERT_EQ(OsProcAttach("tester"), 0U);
    OsProcDetach();
    EXPECT_EQ(Ask("tester", "task").result, 0x80020004U);
    EXPECT_EQ(Create("task"), 0x80020004U);
}

TEST_F(OsProcAttachTest, AProcessAttachesOnce) {
    EXPECT_EQ(OsProcAttach("tester"), 0U);
    EXPECT_EQ(OsProcAttach("tester"), 0x80020005U);
    EXPECT_EQ(OsProcAttach("other"), 0x80020005U);
}

TEST_F(OsProcAttachTest, LeavingTwiceOrWithoutJoiningIsHarmless) {
    OsProcDetach();
    OsProcRequestDetach();
    EXPECT_EQ(OsProcAttach("tester"), 0U);
    OsProcDetach();
    OsProcDetach();
    EXPECT_EQ(OsProcAttach("tester"), 0U);
}

TEST_F(OsProcAttachTest, AProcessMayComeBackUnderAnotherName) {
    ASSERT_EQ(OsProcAttach("first"), 0U);
    OsProcDetach();
    ASSERT_EQ(OsProcAttach("second"), 0U);
    AddTask("echo", Echo());
    EXPECT_EQ(Ask("first", "echo").result, 0x80020008U);
    EXPECT_EQ(Ask("second", "echo", "x").data, "x");
}

TEST_F(OsProcAttachTest, EveryTextOfUpTo15BytesIsAProcessName) {
    for (const char* name : kGoodNames) {
        SCOPED_TRACE(name);
        ASSERT_EQ(OsProcAttach(name), 0U);
        const Inbox inbox;
        AddTask("task", inbox.Keep());
        Post(name, "task");
        ASSERT_TRUE(inbox.Await(1));
        EXPECT_STREQ(inbox.All()[0].envelope.srcProcName, name);
        EXPECT_STREQ(inbox.All()[0].envelope.dstProcName, name);
        OsProcDetach();
    }
}

TEST_F(OsProcAttachTest, OtherProcessNamesAreRefused) {
    for (const char* name : kBadNames) {
        SCOPED_TRACE(name);
        EXPECT_EQ(OsProcAttach(name), 0x80020002U);
    }
    EXPECT_EQ(OsProcAttach(nullptr), 0x80020002U);
    EXPECT_EQ(OsProcAttach("tester"), 0U);
}

TEST_F(OsProcAttachTest, ANameBelongsToOneProcessUntilThatIsGone) {
    ASSERT_EQ(OsProcAttach("tester"), 0U);
    Peer peer("peer");
    OsProcDetach();
    EXPECT_EQ(OsProcAttach("peer"), 0x80020006U);
    peer.Kill();
    EXPECT_TRUE(WaitFor([] { return OsProcAttach("peer") == OS_MSG_OK; }));
}

TEST_F(OsTaskCreateTest, EveryTextOfUpTo15BytesIsATaskName) {
    for (const char* name : kGoodNames) {
        SCOPED_TRACE(name);
        EXPECT_EQ(Create(name), 0U);
        EXPECT_EQ(Ask("tester", name, "x").data, "x");
    }
}

TEST_F(OsTaskCreateTest, OtherTaskNamesAreRefused) {
    for (const char* name : kBadNames) {
        SCOPED_TRACE(name);
        EXPECT_EQ(Create(name), 0x80020002U);
    }
    EXPECT_EQ(Create("123456789012345678901234"), 0x80020002U);  // fills the field, without a NUL
}

TEST_F(OsTaskCreateTest, BadDescriptorsAreRefused) {
    EXPECT_EQ(OsTaskCreate(nullptr), 0x80020002U);
    OsTaskDescriptor task = TaskNamed("task");
    task.queueDepth = 0;
    EXPECT_EQ(OsTaskCreate(&task), 0x80020002U);
    task.queueDepth = 1;
    EXPECT_EQ(OsTaskCreate(&task), 0U);
}

TEST_F(OsTaskCreateTest, ATaskNameIsGivenOnce) {
    EXPECT_EQ(Create("task"), 0U);
    EXPECT_EQ(Create("task"), 0x80020006U);
    EXPECT_EQ(Ask("tester", "task", "x").data, "x");
}

TEST_F(OsTaskCreateTest, LoopOfAnUnknownTaskIsRefused) {
    EXPECT_EQ(OsMsgTaskRoutineByName("task"), 0x80020009U);
    EXPECT_EQ(OsMsgTaskRoutineByName(""), 0x80020009U);
    EXPECT_EQ(OsMsgTaskRoutineByName(nullptr), 0x80020002U);
}

TEST_F(OsTaskCreateTest, AnyThreadMayRunTheLoop) {
    OsTaskDescriptor task = TaskNamed("task");
    task.entry = [] { return 0U; };
    ASSERT_EQ(OsTaskCreate(&task), 0U);
    std::atomic<uint32_t> result{99};
    support::StartThread([&result] { result = OsMsgTaskRoutineByName("task"); });
    EXPECT_EQ(Ask("tester", "task", "x").data, "x");
    EXPECT_EQ(result, 99U);
    OsProcDetach();
    EXPECT_TRUE(WaitFor([&result] { return result != 99; }));
    EXPECT_EQ(result, 0U);
}

TEST_F(OsProcDetachTest, EndsLoopsAfterTheirCurrentMessage) {
    const Inbox inbox;
    const Gate gate;
    AddTask("task", [inbox, gate](const TagMsgBlock& message) {
        inbox.Put(message);
        gate.Pass();
        return 0U;
    });
    for (uint32_t id = 1; id <= 3; ++id) {
        Post("tester", "task", id);
    }
    ASSERT_TRUE(gate.Reached());
    OsProcRequestDetach();
    gate.Open();
    OsProcDetach();
    EXPECT_EQ(inbox.Ids(), std::vector<uint32_t>{1});
}

TEST_F(OsProcDetachTest, WaitingSendsFail) {
    const Inbox inbox;
    AddTask("silent", inbox.Keep());
    const auto result = std::make_shared<std::atomic<uint32_t>>(99);
    support::StartThread([result] { *result = Ask("tester", "silent").result; });
    ASSERT_TRUE(inbox.Await(1));
    EXPECT_EQ(*result, 99U);
    OsProcDetach();
    EXPECT_TRUE(WaitFor([&result] { return *result != 99; }));
    EXPECT_EQ(*result, 0x80020004U);
}

TEST_F(OsProcDetachTest, RequestFromAHandlerEndsLoopsAndSends) {
    AddTask("quit", [](const TagMsgBlock&) {
        OsProcRequestDetach();
        return 0U;
    });
    EXPECT_EQ(Ask("tester", "quit").result, 0x80020004U);
    OsProcDetach();
    EXPECT_EQ(OsProcAttach("tester"), 0U);
}

TEST_F(OsProcDetachTest, WhoAskedALeavingProcessLearnsIt) {
    Peer peer("peer");
    EXPECT_EQ(Ask("peer", "leave").result, 0x8002000aU);
    EXPECT_TRUE(WaitFor([&peer] { return peer.EndedWell(); }));
    support::AwaitAbsence("peer");
}
