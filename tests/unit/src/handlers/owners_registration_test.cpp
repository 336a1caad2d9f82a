// Registration of items by their owners.
#include "handlers/handlers.h"
#include "support/handler_call.h"
#include "support/journal_text.h"
#include "support/server_test.h"

using support::Call;
using support::Envelope;
using support::Lines;
using namespace std::string_view_literals;

namespace {

class ASyncDealRegTest : public support::ServerTest {
protected:
    static bool Known(const std::string& name) {
        tagKivoOmInspectionDataItem item{};
        g_resultMgr.GetResultStatic(name, item);
        return item.result.name == name;
    }
};

}  // namespace

TEST_F(ASyncDealRegTest, AddsTheItemForItsSender) {
    DeleteAtEnd("item");
    Envelope message(2, "item\0"sv);
    message.Param(2500).From("owner", "own_main", "own_task");
    EXPECT_TRUE(Call(Inspect::ASyncDealReg, message).Empty());
    const Lines steps = support::Steps();
    ASSERT_EQ(steps.size(), 3U);  // the one between tells the size of the table
    EXPECT_EQ(steps[0], "3 ResultMgr 13: add inspection in result: [item] ");
    EXPECT_EQ(steps[2], "1 PipeliningMgr 17: add inspection in pipeline: [item] from [owner:own_task] ");
    EXPECT_TRUE(Known("item"));
}

TEST_F(ASyncDealRegTest, TakesTheTimeLimitFromTheParameter) {
    DeleteAtEnd("item");
    Envelope message(2, "item");
    message.Param(2500).From("owner", "own_main", "own_task");
    Call(Inspect::ASyncDealReg, message);
    support::OwnerAnswers("running", "");
    tagKivoOmInspectionRequestMsg request{"item", 2, 0, "{}"};
    tagKivoOmInspectionDataItem item{};
    g_resultMgr.GetResult(request, item);
    kivo::fake::Pass(2);
    g_resultMgr.GetResultStatic("item", item);
    EXPECT_STREQ(item.result.status, "running");
    kivo::fake::Pass(1);
    g_resultMgr.GetResultStatic("item", item);
    EXPECT_STREQ(item.result.text, "timeout");
}

TEST_F(ASyncDealRegTest, ReadsANameWithoutNulToThePayloadsEnd) {
    DeleteAtEnd("ite");
    Envelope message(2, "item");
    message.Get()->dataLen = 3;
    Call(Inspect::ASyncDealReg, message);
    EXPECT_TRUE(Known("ite"));
    EXPECT_FALSE(Known("item"));
}

TEST_F(ASyncDealRegTest, WithoutPayloadIsIgnored) {
    Envelope nothing(2);
    EXPECT_TRUE(Call(Inspect::ASyncDealReg, nothing).Empty());
    EXPECT_TRUE(Call(Inspect::ASyncDealUnReg, nothing).Empty());
    nothing.Get()->dataLen = 4;
    EXPECT_TRUE(Call(Inspect::ASyncDealReg, nothing).Empty());
    EXPECT_TRUE(Call(Inspect::ASyncDealUnReg, nothing).Empty());
    Envelope noLength(2, "item");
    noLength.Get()->dataLen = 0;
    EXPECT_TRUE(Call(Inspect::ASyncDealReg, noLength).Empty());
    EXPECT_TRUE(Call(Inspect::ASyncDealUnReg, noLength).Empty());
    EXPECT_EQ(support::Steps(), Lines{});
}

TEST_F(ASyncDealRegTest, RemovesTheItem) {
    AddItem("item");
    Envelope message(3, "item\0"sv);
    EXPECT_TRUE(Call(Inspect::ASyncDealUnReg, message).Empty());
    EXPECT_EQ(support::Steps(), (Lines{"3 ResultMgr 13: del inspection in result: [item] ",
                                       "1 PipeliningMgr 17: del inspection in pipeline: [item] "}));
    EXPECT_FALSE(Known("item"));
}
