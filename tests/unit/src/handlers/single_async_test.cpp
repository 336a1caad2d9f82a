// Asynchronous single runs.
#include <string>

#include "handlers/handlers.h"
#include "support/handler_call.h"
#include "support/journal_text.h"
#include "support/server_test.h"
#include "task/inspacet_task.h"

using kivo::fake::Kind;
using support::Call;
using support::Envelope;
using support::Lines;
using support::Request;

namespace {

class ASyncDealSingleTest : public support::ServerTest {
protected:
    static support::Reply Send(const std::string& payload) {
        Envelope message(18, payload);
        return Call(Inspect::ASyncDealSingle, message);
    }

    static void Report(const char* status, const char* text) {
        tagKivoOmInspectionResult result = support::Result("item", status, text);
        g_resultMgr.SetResult(result);
    }

    // Messages to requesters and events, in order.
    static Lines Sent() { return support::Steps({Kind::kAsyncSend, Kind::kBroadcast}); }
};

}  // namespace

TEST_F(ASyncDealSingleTest, ARequestIsAnsweredEmptyAndItsResultSentToTheReplyTask) {
    AddItem("item");
    support::OwnerAnswers("success", "fine");
    EXPECT_TRUE(Send(Request("item", "go")).Empty());
    EXPECT_EQ(Sent(), Lines{});  // nothing is done on the server's own thread
    kivo::fake::Settle();
    EXPECT_EQ(Sent(), (Lines{"event 9: 0", "event 8: item|running|begin", "event 8: item|success|fine", "event 9: 1",
                             "send 0 to client:cli_reply: item|success|fine"}));
    EXPECT_EQ(kivo::fake::LiveThreads(), 0U);
}

TEST_F(ASyncDealSingleTest, ARequesterOfARunningItemGetsTwoResults) {
    AddItem("item");
    support::OwnerAnswers("running", "started");
    Send(Request("item", "go"));
    kivo::fake::Settle();
    EXPECT_EQ(Sent(),
              (Lines{"event 9: 0", "event 8: item|running|begin", "send 0 to client:cli_reply: item|running|started"}));
    kivo::fake::ClearJournal();
    kivo::fake::Pass(3);
    EXPECT_EQ(Sent(), Lines{});
    Report("success", "done at last");
    kivo::fake::Pass(1);
    EXPECT_EQ(Sent(), (Lines{"event 8: item|success|done at last", "event 9: 1",
                             "send 0 to client:cli_reply: item|success|done at last"}));
}

TEST_F(ASyncDealSingleTest, ItsRequesterIsToldOfProgress) {
    AddItem("item");
    support::OwnerAnswers("running", "started");
    Send(Request("item", "go"));
    kivo::fake::Settle();
    std::vector<InspectClientMsg> requesters;
    g_resultMgr.GetRequesterMsg("item", requesters);
    ASSERT_EQ(requesters.size(), 1U);
    EXPECT_EQ(requesters[0].procName + ":" + requesters[0].taskName, "client:cli_reply");
    Report("success", "");
}

TEST_F(ASyncDealSingleTest, WaitsWithoutALimitOfItsOwn) {
    AddItem("item");
    support::OwnerAnswers("running", "started");
    Send(Request("item", "go"));
    kivo::fake::Pass(100000);
    kivo::fake::ClearJournal();
    Report("fail", "after a day");
    kivo::fake::Pass(1);
    EXPECT_EQ(Sent().back(), "send 0 to client:cli_reply: item|fail|after a day");
}

TEST_F(ASyncDealSingleTest, TheItemsTimeLimitEndsTheWait) {
    AddItem("item", 2500);
    support::OwnerAnswers("running", "started");
    Send(Request("item", "go"));
    kivo::fake::Pass(10);
    EXPECT_EQ(Sent().back(), "send 0 to client:cli_reply: item|fail|timeout");
    EXPECT_EQ(support::Events().back(), "event 9: 1");
    EXPECT_EQ(kivo::fake::LiveThreads(), 0U);
}

TEST_F(ASyncDealSingleTest, TwoRequestersShareOneRunAndTheLastReleaseEndsIt) {
    AddItem("item");
    support::OwnerAnswers("running", "started");
    Send(Request("item", "go"));
    kivo::fake::Settle();
    Envelope second(18, Request("item", "go"));
    second.From("other", "t", "other_reply");
    Call(Inspect::ASyncDealSingle, second);
    kivo::fake::Settle();
    kivo::fake::ClearJournal();
    Report("success", "shared");
    kivo::fake::Pass(2);
    const Lines sent = Sent();
    ASSERT_EQ(sent.size(), 4U);
    EXPECT_EQ(sent[0], "send 0 to client:cli_reply: item|success|shared");
    EXPECT_EQ(sent[1], "event 8: item|success|shared");
    EXPECT_EQ(sent[2], "event 9: 1");
    EXPECT_EQ(sent[3], "send 0 to other:other_reply: item|success|shared");
}

TEST_F(ASyncDealSingleTest, AnUnknownItemIsAnsweredOnce) {
    Send(Request("nobody", "go"));
    kivo::fake::Settle();
    EXPECT_EQ(Sent(), (Lines{"send 0 to client:cli_reply: nobody|fail|no support"}));
}

TEST_F(ASyncDealSingleTest, ADeletedItemEndsTheWaitWithNoSupport) {
    AddItem("item");
    support::OwnerAnswers("running", "started");
    Send(Request("item", "go"));
    kivo::fake::Settle();
    g_resultMgr.DelItem("item");
    kivo::fake::Pass(1);
    EXPECT_EQ(Sent().back(), "send 0 to client:cli_reply: item|fail|no support");
}

TEST_F(ASyncDealSingleTest, AStopWithoutForceDoesNotReachIt) {
    AddItem("item");
    support::OwnerAnswers("running", "started");
    Send(Request("item", "go"));
    kivo::fake::Settle();
    const uint32_t firstId = static_cast<uint32_t>(kivo::fake::kStartTime) + 1;
    Envelope stop(6, "");
    stop.Param(firstId);
    EXPECT_EQ(Call(Inspect::SyncDealStopGroup, stop).Number(), 1U);
    Report("success", "");
    EXPECT_EQ(InspacetTask::StopTask(firstId, true), 0U);  // it was there
}

TEST_F(ASyncDealSingleTest, AMissingPayloadStartsNothing) {
    Envelope message(18);
    EXPECT_TRUE(Call(Inspect::ASyncDealSingle, message).Empty());
    EXPECT_EQ(kivo::fake::LiveThreads(), 0U);
    EXPECT_EQ(support::Steps(), Lines{});
}

TEST_F(ASyncDealSingleTest, WithoutAWorkerTheRequestIsLost) {
    AddItem("item");
    kivo::fake::Fail("OsPthreadCreate", 11);
    EXPECT_TRUE(Send(Request("item", "go")).Empty());
    kivo::fake::Settle();
    EXPECT_EQ(support::Steps(), (Lines{"1 inspacetTask 16: createthread error"}));
}
