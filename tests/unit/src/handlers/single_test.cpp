// Single-item requests and their synchronous handler.
#include "handlers/single.h"

#include <algorithm>
#include <string>

#include "handlers/handlers.h"
#include "support/alloc_failure.h"
#include "support/handler_call.h"
#include "support/journal_text.h"
#include "support/server_test.h"
#include "task/inspacet_task.h"

using kivo::fake::Kind;
using support::AllocFailure;
using support::Bytes;
using support::Call;
using support::Envelope;
using support::Lines;
using support::Reply;
using support::Request;

namespace {

class InspectSingleTest : public support::ServerTest {
protected:
    // InspectSingle on an empty item.
    uint8_t Do(const std::string& json) {
        m_item = {};
        return Inspect::InspectSingle(json, m_item);
    }

    std::string Item() const { return support::Show(m_item.result); }

    static Reply Send(const std::string& payload) {
        Envelope message(0, payload);
        return Call(Inspect::SyncDealSingle, message);
    }

    tagKivoOmInspectionDataItem m_item{};
};

bool Contains(const Lines& lines, const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

}  // namespace

TEST_F(InspectSingleTest, LogsTextNameAndCommandFirst) {
    Do(R"({"name":"item","cmd":"go"})");
    EXPECT_EQ(support::Steps().at(0), R"(3 inspect_dealmsg 19: InspectSingle[{"name":"item","cmd":"go"}][item][go])");
}

TEST_F(InspectSingleTest, AnUnknownItemIsFinalAndNotSupported) {
    EXPECT_EQ(Do(Request("item", "go")), 1);
    EXPECT_EQ(Item(), "item|fail|no support");
    EXPECT_EQ(support::LogLines().back(), "1 ResultMgr 13: Get Result fail, name [item]");
}

TEST_F(InspectSingleTest, MissingMembersAreEmpty) {
    EXPECT_EQ(Do("{}"), 1);
    EXPECT_EQ(support::LogLines(),
              (Lines{"3 inspect_dealmsg 19: InspectSingle[{}][][]", "1 ResultMgr 13: Get Result fail, name []"}));
    EXPECT_EQ(Item(), "|fail|no support");
}

TEST_F(InspectSingleTest, ATextThatIsNoJsonHasNoMembers) {
    EXPECT_EQ(Do("rubbish"), 1);
    EXPECT_EQ(support::LogLines().at(0), "3 inspect_dealmsg 19: InspectSingle[rubbish][][]");
}

TEST_F(InspectSingleTest, ANameOf32AndACommandOf128BytesAreLeftEmpty) {
    Do(Request(std::string(32, 'n'), "done"));
    EXPECT_EQ(Item(), "||done");
    Do(Request("item", std::string(128, 'c')));
    EXPECT_EQ(Item(), "item|fail|no support");
    Do(Request(std::string(31, 'n'), std::string(127, 'c')));
    EXPECT_EQ(support::LogLines().back(), "1 ResultMgr 13: Get Result fail, name [" + std::string(31, 'n') + "]");
}

TEST_F(InspectSingleTest, ANameThatCannotBeCopiedIsLoggedAndTheRequestGoesOn) {
    AddItem("item");
    support::OwnerAnswers("success", "all well");
    kivo::fake::Fail("strcpy_s", 34);
    EXPECT_EQ(Do(Request("item", "go")), 1);
    EXPECT_EQ(support::LogLines().at(1), "1 inspect_dealmsg 19: InspectSingle cpy err");
    EXPECT_EQ(Item(), "item|success|all well");
}

TEST_F(InspectSingleTest, ARunThatEndsAtOnceIsFinal) {
    AddItem("item");
    support::OwnerAnswers("success", "all well");
    EXPECT_EQ(Do(Request("item", "go")), 1);
    EXPECT_EQ(Item(), "item|success|all well");
    EXPECT_EQ(m_item.startTime, 1700000000000U);
}

TEST_F(InspectSingleTest, ARunThatGoesOnMustBeWaitedFor) {
    AddItem("item");
    support::OwnerAnswers("running", "10%");
    EXPECT_EQ(Do(Request("item", "go")), 0);
    EXPECT_EQ(Item(), "item|running|10%");
}

TEST_F(InspectSingleTest, TheOwnerGetsTheWholeTextAndItsNul) {
    AddItem("item");
    Bytes payload;
    support::OwnerDoes([&payload](const kivo::fake::Entry& message) {
        payload = message.data;
        return kivo::fake::Answer{};
    });
    Do(R"({"name":"item"})");
    // Head of 36 bytes, the text of 15, its NUL, which counts, and the closing NUL.
    ASSERT_EQ(payload.size(), 53U);
    EXPECT_EQ(payload[32], 16);
    EXPECT_EQ(Bytes(payload.begin() + 36, payload.begin() + 51), support::BytesOfText(R"({"name":"item"})"));
    EXPECT_EQ(payload[51], 0);
    EXPECT_EQ(payload[52], 0);
}

TEST_F(InspectSingleTest, StopAsksTheOwnerPastTheTable) {
    AddItem("item");
    support::OwnerAnswers("success", "stopped");
    EXPECT_EQ(Do(Request("item", "stop")), 1);
    EXPECT_EQ(Item(), "item|success|stopped");
    EXPECT_EQ(Stored("item"), "item|idle|init");
    EXPECT_EQ(support::Steps({Kind::kSyncSend, Kind::kBroadcast}), (Lines{"ask 4 of owner:own_task"}));
}

TEST_F(InspectSingleTest, StopIsFinalEvenIfTheOwnerSaysRunning) {
    AddItem("item");
    support::OwnerAnswers("running", "");
    EXPECT_EQ(Do(Request("item", "stop")), 1);
    EXPECT_EQ(Item(), "item|running|");
}

TEST_F(InspectSingleTest, StopOfAnUnknownItemIsARunError) {
    EXPECT_EQ(Do(Request("x", "stop")), 1);
    EXPECT_EQ(Item(), "x|fail|run err");
}

TEST_F(InspectSingleTest, DoneResetsTheItemToIdle) {
    AddItem("item");
    g_resultMgr.SetResultStatic("item", "success");
    kivo::fake::ClearJournal();
    EXPECT_EQ(Do(Request("item", "done")), 1);
    EXPECT_EQ(Stored("item"), "item|idle|init");
    EXPECT_EQ(Item(), "item||done");
    EXPECT_EQ(support::Steps(),
              (Lines{R"(3 inspect_dealmsg 19: InspectSingle[{"name":"item","cmd":"done"}][item][done])",
                     "3 ResultMgr 13: SetResultStatic item to idle"}));
}

TEST_F(InspectSingleTest, CommandsAreComparedWhole) {
    for (const char* cmd : {"stop2", "sto", "done2", "STOP", ""}) {
        EXPECT_EQ(Do(Request("item", cmd)), 1);
        EXPECT_EQ(Item(), "item|fail|no support") << cmd;
    }
}

TEST_F(InspectSingleTest, SynchronousWithoutPayloadIsNotAnswered) {
    EXPECT_TRUE(Send("").Empty());
    Envelope noData(0);
    noData.Get()->dataLen = 10;
    EXPECT_TRUE(Call(Inspect::SyncDealSingle, noData).Empty());
    EXPECT_EQ(support::Steps(), Lines{});
}

TEST_F(InspectSingleTest, SynchronousWithoutMemoryIsNotAnsweredAndRunsNothing) {
    AddItem("item");
    Envelope message(0, Request("item", "go"));
    const AllocFailure failure(AllocFailure::Kind::kNothrow, 192);
    EXPECT_TRUE(Call(Inspect::SyncDealSingle, message).Empty());
    EXPECT_TRUE(failure.Happened());
    EXPECT_EQ(support::Steps(), Lines{});
}

TEST_F(InspectSingleTest, SynchronousAnswersWithTheResult) {
    AddItem("item");
    support::OwnerAnswers("success", "all well");
    const Reply reply = Send(Request("item", "go"));
    EXPECT_EQ(reply.length, 192U);
    EXPECT_EQ(support::Show(reply.bytes), "item|success|all well");
}

TEST_F(InspectSingleTest, SynchronousTakesExactlyThePayloadsBytes) {
    AddItem("item");
    support::OwnerAnswers("success", "all well");
    Envelope message(0, Request("item", "go") + "rubbish");
    message.Get()->dataLen -= 7;
    EXPECT_EQ(support::Show(Call(Inspect::SyncDealSingle, message).bytes), "item|success|all well");
}

TEST_F(InspectSingleTest, SynchronousStopAnswersAtOnceWithWhatTheOwnerSaid) {
    AddItem("x");
    support::OwnerAnswers("success", "stop");
    EXPECT_EQ(support::Show(Send(Request("x", "stop")).bytes), "x|success|stop");
    EXPECT_EQ(kivo::fake::Now(), 1700000000000U);
}

TEST_F(InspectSingleTest, SynchronousDoneAnswersAtOnce) {
    AddItem("item");
    g_resultMgr.SetResultStatic("item", "success");
    EXPECT_EQ(support::Show(Send(Request("item", "done")).bytes), "item||done");
    EXPECT_EQ(Stored("item"), "item|idle|init");
    EXPECT_EQ(kivo::fake::Now(), 1700000000000U);
}

// The name of the item waited for is deliberately taken from the reply, which is still empty.
TEST_F(InspectSingleTest, SynchronousWaitsForTheItemOfTheEmptyName) {
    AddItem("item");
    support::OwnerAnswers("running", "10%");
    const Reply reply = Send(Request("item", "go"));
    EXPECT_EQ(support::Show(reply.bytes), "|fail|no support");
    EXPECT_EQ(kivo::fake::Now(), 1700000001000U);  // after one second
    const Lines steps = support::Steps();
    ASSERT_GE(steps.size(), 2U);
    EXPECT_EQ(steps[steps.size() - 1], "1 ResultMgr 13: find name err [] ");
    EXPECT_TRUE(Contains(steps, "3 ResultMgr 13: add requester [] to [client:cli_reply]"));
    EXPECT_EQ(Stored("item"), "item|running|10%");
}

TEST_F(InspectSingleTest, SynchronousPollsOnceASecondUntilTheEmptyNamedItemIsFinal) {
    AddItem("item");
    AddItem("");
    g_resultMgr.SetResultStatic("", "running");
    support::OwnerAnswers("running", "");
    const unsigned int job = InspacetTask::CreateTask(
        [](TaskData& /*task*/) {
            kivo::fake::Pass(3);
            g_resultMgr.SetResultStatic("", "success");
        },
        false);
    ASSERT_NE(job, 0U);
    EXPECT_EQ(support::Show(Send(Request("item", "go")).bytes), "|success|init");
    EXPECT_GE(kivo::fake::Now(), 1700000003000U);
    EXPECT_LE(kivo::fake::Now(), 1700000004000U);
}
