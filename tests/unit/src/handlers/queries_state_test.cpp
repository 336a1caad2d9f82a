// State queries.
#include "handlers/handlers.h"
#include "support/alloc_failure.h"
#include "support/handler_call.h"
#include "support/journal_text.h"
#include "support/server_test.h"

using support::AllocFailure;
using support::Call;
using support::Envelope;
using support::Lines;
using namespace std::string_view_literals;

namespace {

class SyncDealGetStateTest : public support::ServerTest {
protected:
    static uint32_t Of(std::string_view payload) {
        Envelope message(7, payload);
        const support::Reply reply = Call(Inspect::SyncDealGetState, message);
        EXPECT_EQ(reply.length, 4U);
        return reply.Number();
    }
};

}  // namespace

TEST_F(SyncDealGetStateTest, WithoutANameIs2) {
    EXPECT_EQ(Of(""), 2U);
    Envelope noData(7);
    noData.Get()->dataLen = 4;
    EXPECT_EQ(Call(Inspect::SyncDealGetState, noData).Number(), 2U);
}

TEST_F(SyncDealGetStateTest, OfAnUnknownItemIs1) {
    EXPECT_EQ(Of("nobody"), 1U);
    EXPECT_EQ(support::Steps(), Lines{});
}

TEST_F(SyncDealGetStateTest, OfAnIdleItemIs1) {
    AddItem("item");
    EXPECT_EQ(Of("item"), 1U);
}

TEST_F(SyncDealGetStateTest, OfARunningItemIs0) {
    AddItem("item");
    support::OwnerAnswers("running", "");
    tagKivoOmInspectionRequestMsg request{"item", 2, 0, "{}"};
    tagKivoOmInspectionDataItem item{};
    g_resultMgr.GetResult(request, item);
    EXPECT_EQ(Of("item"), 0U);
}

TEST_F(SyncDealGetStateTest, OfAFinishedItemIs0UntilItIsReset) {
    AddItem("item");
    g_resultMgr.SetResultStatic("item", "success");
    EXPECT_EQ(Of("item"), 0U);
    g_resultMgr.SetResultStatic("item", "idle2");
    EXPECT_EQ(Of("item"), 0U);
    g_resultMgr.SetResultStatic("item", "idle");
    EXPECT_EQ(Of("item"), 1U);
}

TEST_F(SyncDealGetStateTest, TakesTheNameUpToItsFirstNul) {
    AddItem("item");
    g_resultMgr.SetResultStatic("item", "success");
    EXPECT_EQ(Of("item\0rest"sv), 0U);
    EXPECT_EQ(Of("item "sv), 1U);
}

TEST_F(SyncDealGetStateTest, WithoutMemoryIsNotAnswered) {
    Envelope message(7, "item");
    const AllocFailure failure(AllocFailure::Kind::kNothrow, 4);
    EXPECT_TRUE(Call(Inspect::SyncDealGetState, message).Empty());
    EXPECT_TRUE(failure.Happened());
}
