// Polling, reading and writing entries without a run.
#include <cstring>
#include <string>

#include "result/result_mgr.h"
#include "support/journal_text.h"
#include "support/result_test.h"

using support::Lines;

namespace {

using ResultMgrReadTest = support::ResultTest;

}  // namespace

TEST_F(ResultMgrReadTest, UnLockOfAnUnknownNameIsFinalAndNotSupported) {
    EXPECT_EQ(UnLock("nobody"), "1 nobody|fail|no support");
    EXPECT_EQ(support::Steps(), (Lines{"1 ResultMgr 13: find name err [nobody] "}));
    EXPECT_EQ(Stored("nobody"), "||");
}

TEST_F(ResultMgrReadTest, UnLockOfAnUnknownNameLeavesTheTimes) {
    tagKivoOmInspectionDataItem item{{"x", "y", "z"}, 5, 6};
    m_mgr.UnLockResult("nobody", item);
    EXPECT_EQ(item.startTime, 5U);
    EXPECT_EQ(item.endTime, 6U);
}

TEST_F(ResultMgrReadTest, UnLockWhileRunningIs0AndReleasesNothing) {
    AddItem("a");
    support::OwnerAnswers("running", "10%");
    Run("a");
    kivo::fake::Settle();
    kivo::fake::ClearJournal();
    EXPECT_EQ(UnLock("a"), "0 a|running|10%");
    EXPECT_EQ(m_item.startTime, 1700000000000U);
    EXPECT_EQ(support::Steps(), Lines{});
    EXPECT_EQ(ResultMgrPeer(m_mgr).Entry("a").startCount, 1);
}

TEST_F(ResultMgrReadTest, TheLastUnLockEndsTheRun) {
    AddItem("a");
    support::OwnerAnswers("running", "");
    Run("a");
    Run("a");
    m_mgr.AddRequesterMsg("a", {"p", "t"});
    Report("a", "success", "all well");
    kivo::fake::ClearJournal();
    EXPECT_EQ(UnLock("a"), "1 a|success|all well");
    EXPECT_EQ(support::Events(), Lines{});
    EXPECT_EQ(ResultMgrPeer(m_mgr).Entry("a").requesters.size(), 1U);
    EXPECT_EQ(UnLock("a"), "1 a|success|all well");
    EXPECT_EQ(support::Events(), (Lines{"event 8: a|success|all well", "event 9: 1"}));
    EXPECT_TRUE(ResultMgrPeer(m_mgr).Entry("a").requesters.empty());
}

TEST_F(ResultMgrReadTest, TheLastUnLockOfOneItemLeavesTheServerBusyWithAnother) {
    AddItem("a");
    AddItem("b");
    support::OwnerAnswers("running", "");
    Run("a");
    Run("b");
    Report("a", "success", "");
    kivo::fake::ClearJournal();
    UnLock("a");
    EXPECT_EQ(support::Events(), (Lines{"event 8: a|success|"}));
}

TEST_F(ResultMgrReadTest, UnLockGivesTheTimesFromBeforeTheEnd) {
    AddItem("a");
    support::OwnerAnswers("running", "");
    Run("a");
    kivo::fake::Pass(2);
    Report("a", "success", "");
    kivo::fake::Pass(3);
    UnLock("a");
    EXPECT_EQ(m_item.endTime, 1700000002000U);  // when the result came
    Stored("a");
    EXPECT_EQ(m_item.endTime, 1700000005000U);  // when the run was released
}

TEST_F(ResultMgrReadTest, UnLockWithoutARunChangesNothing) {
    AddItem("a");
    EXPECT_EQ(UnLock("a"), "1 a|idle|init");
    EXPECT_EQ(support::Steps(), Lines{});
    EXPECT_EQ(ResultMgrPeer(m_mgr).Entry("a").startCount, 0);
    EXPECT_EQ(ResultMgrPeer(m_mgr).Entry("a").endTime, 0U);
}

TEST_F(ResultMgrReadTest, StaticReadsCopyTheWholeEntry) {
    AddItem("a");
    support::OwnerAnswers("success", "all well", 1000);
    Run("a");
    kivo::fake::ClearJournal();
    EXPECT_EQ(Stored("a"), "a|success|all well");
    EXPECT_EQ(m_item.startTime, 1700000000000U);
    EXPECT_EQ(m_item.endTime, 1700000001000U);
    EXPECT_EQ(support::Steps(), Lines{});
}

TEST_F(ResultMgrReadTest, AStaticReadOfAnUnknownNameLeavesTheOutput) {
    tagKivoOmInspectionDataItem item{{"x", "y", "z"}, 5, 6};
    const support::Bytes before = support::BytesOf(item);
    m_mgr.GetResultStatic("nobody", item);
    EXPECT_EQ(support::BytesOf(item), before);
    EXPECT_EQ(support::Steps(), Lines{});
}

TEST_F(ResultMgrReadTest, StaticWritesChangeTheStatusOnly) {
    AddItem("a");
    support::OwnerAnswers("running", "10%");
    Run("a");
    m_mgr.AddRequesterMsg("a", {"p", "t"});
    kivo::fake::Pass(2);
    kivo::fake::ClearJournal();
    m_mgr.SetResultStatic("a", "stop");
    EXPECT_EQ(support::Steps(), (Lines{"3 ResultMgr 13: SetResultStatic a to stop"}));
    EXPECT_EQ(Stored("a"), "a|stop|10%");
    EXPECT_EQ(m_item.startTime, 1700000000000U);
    EXPECT_EQ(m_item.endTime, 0U);
    EXPECT_EQ(ResultMgrPeer(m_mgr).Entry("a").startCount, 1);
    EXPECT_EQ(ResultMgrPeer(m_mgr).Entry("a").requesters.size(), 1U);
}

TEST_F(ResultMgrReadTest, StaticWritesZeroTheFieldBehindTheStatus) {
    AddItem("a");
    m_mgr.SetResultStatic("a", std::string(31, 's'));
    EXPECT_EQ(Stored("a"), "a|" + std::string(31, 's') + "|init");
    m_mgr.SetResultStatic("a", "x");
    Stored("a");
    EXPECT_EQ(support::BytesOf(m_item.result), support::BytesOf(support::Result("a", "x", "init")));
}

TEST_F(ResultMgrReadTest, AStaticWriteOf32BytesIsLoggedTwiceAndLeavesTheStatusEmpty) {
    AddItem("a");
    const std::string status(32, 's');
    m_mgr.SetResultStatic("a", status);
    EXPECT_EQ(support::Steps(), (Lines{"3 ResultMgr 13: SetResultStatic a to " + status,
                                       "3 ResultMgr 13: SetResultStatic a err, ret : 34"}));
    EXPECT_EQ(Stored("a"), "a||init");
}

TEST_F(ResultMgrReadTest, AStaticWriteOfAnUnknownNameIsIgnored) {
    m_mgr.SetResultStatic("nobody", "idle");
    EXPECT_EQ(support::Steps(), Lines{});
    EXPECT_EQ(Stored("nobody"), "||");
}

TEST_F(ResultMgrReadTest, AStaticRunningLooksInProgressWithoutAHold) {
    AddItem("a");
    m_mgr.SetResultStatic("a", "running");
    EXPECT_EQ(UnLock("a"), "0 a|running|init");
    Report("a", "running", "50%");
    EXPECT_EQ(Stored("a"), "a|running|50%");
    Report("a", "success", "end");
    EXPECT_EQ(UnLock("a"), "1 a|success|end");
    EXPECT_EQ(support::Events(), Lines{});
}
