// Results that owners report.
#include <string>

#include "handlers/handlers.h"
#include "support/handler_call.h"
#include "support/journal_text.h"
#include "support/server_test.h"

using kivo::fake::Kind;
using support::Bytes;
using support::BytesOf;
using support::Call;
using support::Envelope;
using support::Lines;

namespace {

class ASyncDealSendResultTest : public support::ServerTest {
protected:
    void SetUp() override {
        ServerTest::SetUp();
        AddItem("item");
        support::OwnerAnswers("running", "");
        tagKivoOmInspectionRequestMsg request{"item", 2, 0, "{}"};
        tagKivoOmInspectionDataItem item{};
        g_resultMgr.GetResult(request, item);
        g_resultMgr.AddRequesterMsg("item", {"first", "task_a"});
        g_resultMgr.AddRequesterMsg("item", {"second", "task_b"});
        kivo::fake::Settle();
        kivo::fake::ClearJournal();
    }

    static support::Reply Send(Bytes payload) {
        Envelope message(5, std::move(payload));
        return Call(Inspect::ASyncDealSendResult, message);
    }
};

}  // namespace

TEST_F(ASyncDealSendResultTest, OfProgressIsStoredAndForwardedToEveryRequesterInOrder) {
    EXPECT_TRUE(Send(BytesOf(support::Result("item", "running", "40%"))).Empty());
    EXPECT_EQ(Stored("item"), "item|running|40%");
    EXPECT_EQ(support::Steps(),
              (Lines{"3 inspect_dealmsg 19: now send result to [item]", "send 0 to first:task_a: item|running|40%",
                     "send 0 to second:task_b: item|running|40%"}));
}

TEST_F(ASyncDealSendResultTest, OfAFinalResultIsStoredAndNotForwarded) {
    for (const char* status : {"done", "success", "fail", "running2"}) {
        kivo::fake::ClearJournal();
        Send(BytesOf(support::Result("item", status, "text")));
        EXPECT_EQ(Stored("item"), std::string("item|") + status + "|text");
        EXPECT_EQ(support::Steps(), (Lines{"3 inspect_dealmsg 19: now send result to [item]"}));
    }
}

TEST_F(ASyncDealSendResultTest, ForwardsTheBytesAsTheyCame) {
    Bytes payload = BytesOf(support::Result("item", "running", "x"));
    payload[100] = 'r';  // behind the text's NUL
    Send(payload);
    EXPECT_EQ(kivo::fake::Journal().back().data, payload);
}

TEST_F(ASyncDealSendResultTest, OfAnotherSizeIsIgnored) {
    Bytes payload = BytesOf(support::Result("item", "success", "x"));
    payload.resize(191);
    Send(payload);
    payload.resize(193);
    Send(payload);
    Send({});
    EXPECT_EQ(support::Steps(), Lines{});
    EXPECT_EQ(Stored("item"), "item|running|");
}

TEST_F(ASyncDealSendResultTest, WithoutDataIsIgnored) {
    Envelope message(5);
    message.Get()->dataLen = 192;
    Call(Inspect::ASyncDealSendResult, message);
    EXPECT_EQ(support::Steps(), Lines{});
}

TEST_F(ASyncDealSendResultTest, WithAFieldWithoutNulIsRefused) {
    for (const std::size_t last : {31U, 63U, 191U}) {
        kivo::fake::ClearJournal();
        Bytes payload = BytesOf(support::Result("item", "success", "x"));
        payload[last] = 'x';
        Send(payload);
        EXPECT_EQ(support::Steps(), (Lines{"1 inspect_dealmsg 19: err result data."}));
        EXPECT_EQ(Stored("item"), "item|running|");
    }
}

TEST_F(ASyncDealSendResultTest, OfAnUnknownItemIsForwardedToNobody) {
    Send(BytesOf(support::Result("nobody", "running", "x")));
    EXPECT_EQ(support::Steps(), (Lines{"3 inspect_dealmsg 19: now send result to [nobody]"}));
}

TEST_F(ASyncDealSendResultTest, OfProgressOfAnIdleItemIsForwardedButNotStored) {
    g_resultMgr.SetResultStatic("item", "idle");
    kivo::fake::ClearJournal();
    Send(BytesOf(support::Result("item", "running", "40%")));
    EXPECT_EQ(Stored("item"), "item|idle|");
    EXPECT_EQ(support::Steps({Kind::kAsyncSend}),
              (Lines{"send 0 to first:task_a: item|running|40%", "send 0 to second:task_b: item|running|40%"}));
}

TEST_F(ASyncDealSendResultTest, ThatCannotBeSentToOneRequesterIsSentToTheNext) {
    kivo::fake::Fail("OsMsgAsynSend", 0x80020008);
    Send(BytesOf(support::Result("item", "running", "40%")));
    EXPECT_EQ(support::Steps(), (Lines{"3 inspect_dealmsg 19: now send result to [item]",
                                       "1 inspect_dealmsg 19: SendASyncResult send fail ret:#80020008 id:0",
                                       "send 0 to second:task_b: item|running|40%"}));
}
