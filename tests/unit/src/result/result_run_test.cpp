// Runs: started, joined, ended, reported; groups.
#include <cstring>
#include <string>

#include "result/result_mgr.h"
#include "support/journal_text.h"
#include "support/result_test.h"

using kivo::fake::Answer;
using kivo::fake::Entry;
using kivo::fake::Kind;
using support::Lines;

namespace {

using ResultMgrRunTest = support::ResultTest;

}  // namespace

TEST_F(ResultMgrRunTest, OfAnUnknownItemAreNotSupported) {
    tagKivoOmInspectionRequestMsg request{"a", 3, 0, "{}"};
    tagKivoOmInspectionDataItem item{support::Result("before", "before", "before"), 5, 6};
    m_mgr.GetResult(request, item);
    EXPECT_EQ(support::BytesOf(item.result), support::BytesOf(support::Result("a", "fail", "no support")));
    EXPECT_EQ(item.startTime, 5U);  // only the record is written
    EXPECT_EQ(item.endTime, 6U);
    EXPECT_EQ(support::Steps(), (Lines{"1 ResultMgr 13: Get Result fail, name [a]"}));
}

TEST_F(ResultMgrRunTest, WithAnImmediateFinalAnswerBeginAndEndInOrder) {
    AddItem("a");
    support::OwnerAnswers("success", "all well");
    EXPECT_EQ(Run("a"), "a|success|all well");
    EXPECT_EQ(support::Steps(), (Lines{"event 9: 0", "event 8: a|running|begin", "ask 4 of owner:own_task",
                                       "OsMsgSynRespFree", "3 ResultMgr 13: RunResult ret[0] name[a] result[success]",
                                       "event 8: a|success|all well", "event 9: 1"}));
    EXPECT_EQ(Stored("a"), "a|success|all well");
}

TEST_F(ResultMgrRunTest, StampTheirBeginAndEnd) {
    AddItem("a");
    support::OwnerAnswers("success", "", 2500);
    Run("a");
    EXPECT_EQ(m_item.startTime, 1700000000000U);
    EXPECT_EQ(m_item.endTime, 1700000002500U);
    Stored("a");
    EXPECT_EQ(m_item.startTime, 1700000000000U);
    EXPECT_EQ(m_item.endTime, 1700000002500U);
}

TEST_F(ResultMgrRunTest, AnswerWithTheWhole208Bytes) {
    AddItem("a");
    support::OwnerAnswers("success", "all well", 1000);
    Run("a");
    const support::Bytes given = support::BytesOf(m_item);
    Stored("a");
    EXPECT_EQ(given, support::BytesOf(m_item));
    EXPECT_EQ(given.size(), 208U);
}

TEST_F(ResultMgrRunTest, AreAskedForWithFiveMinutesOfTime) {
    AddItem("a");
    support::OwnerAnswers("success", "");
    Run("a");
    std::vector<uint32_t> limits;
    for (const Entry& entry : kivo::fake::Journal()) {
        if (entry.kind == Kind::kSyncSend) {
            limits.push_back(entry.timeout);
        }
    }
    EXPECT_EQ(limits, std::vector<uint32_t>{300000U});
}

TEST_F(ResultMgrRunTest, OfAnOwnerThatGoesOnStayHeld) {
    AddItem("a");
    support::OwnerAnswers("running", "10%");
    EXPECT_EQ(Run("a"), "a|running|10%");
    EXPECT_EQ(m_item.startTime, 1700000000000U);
    EXPECT_EQ(m_item.endTime, 0U);
    kivo::fake::Settle();
    EXPECT_EQ(support::Steps(), (Lines{"event 9: 0", "event 8: a|running|begin", "ask 4 of owner:own_task",
                                       "OsMsgSynRespFree", "3 ResultMgr 13: RunResult ret[0] name[a] result[running]",
                                       "OsPthreadDetach", "3 ResultMgr 13: start wait[a]"}));
    EXPECT_EQ(ResultMgrPeer(m_mgr).Entry("a").startCount, 1);
}

TEST_F(ResultMgrRunTest, AreJoinedWithoutAskingAgain) {
    AddItem("a");
    support::OwnerAnswers("running", "10%");
    Run("a");
    kivo::fake::Settle();
    kivo::fake::ClearJournal();
    EXPECT_EQ(Run("a"), "a|running|10%");
    EXPECT_EQ(support::Steps(), Lines{});
    EXPECT_EQ(ResultMgrPeer(m_mgr).Entry("a").startCount, 2);
}

TEST_F(ResultMgrRunTest, AreJoinedWhileTheOwnerIsAsked) {
    AddItem("a");
    std::string joined;
    uint8_t holds = 0;
    support::OwnerDoes([&](const Entry& /*message*/) {  // the table lock is free here
        joined = Run("a");
        holds = ResultMgrPeer(m_mgr).Entry("a").startCount;
        return Answer{.data = support::BytesOf(support::Result("a", "success", ""))};
    });
    tagKivoOmInspectionDataItem item{};
    tagKivoOmInspectionRequestMsg request{"a", 3, 0, "{}"};
    m_mgr.GetResult(request, item);
    EXPECT_EQ(joined, "a|running|begin");
    EXPECT_EQ(holds, 2);
    EXPECT_EQ(item.endTime, 1700000000000U);  // the result is in, though the joiner still holds the run
    // The join holds the run: its end is not broadcast until the joiner releases it.
    EXPECT_EQ(support::Events(), (Lines{"event 9: 0", "event 8: a|running|begin"}));
    EXPECT_EQ(UnLock("a"), "1 a|success|");
    EXPECT_EQ(support::Events(),
              (Lines{"event 9: 0", "event 8: a|running|begin", "event 8: a|success|", "event 9: 1"}));
}

TEST_F(ResultMgrRunTest, WithAFinalResultNotYetReleasedAreAnsweredWithItAndNotJoined) {
    AddItem("a");
    support::OwnerAnswers("running", "");
    Run("a");
    Report("a", "success", "done");
    kivo::fake::ClearJournal();
    EXPECT_EQ(Run("a"), "a|success|done");
    EXPECT_EQ(support::Steps(), Lines{});
    EXPECT_EQ(ResultMgrPeer(m_mgr).Entry("a").startCount, 1);
}

TEST_F(ResultMgrRunTest, AreCountedIn8Bits) {
    AddItem("a");
    support::OwnerAnswers("running", "");
    Run("a");
    for (int joins = 0; joins < 255; ++joins) {
        Run("a");
    }
    EXPECT_EQ(ResultMgrPeer(m_mgr).Entry("a").startCount, 0);
    m_mgr.Init();  // the run that the wrap forgot counts no more
    kivo::fake::Settle();
    kivo::fake::ClearJournal();
    const uint32_t forgotten = ResultMgrPeer(m_mgr).Entry("a").taskId;
    support::OwnerAnswers("success", "");
    EXPECT_EQ(Run("a"), "a|success|");
    EXPECT_EQ(support::Events(),
              (Lines{"event 9: 0", "event 8: a|running|begin", "event 8: a|success|", "event 9: 1"}));
    EXPECT_EQ(ResultMgrPeer(m_mgr).Entry("a").taskId, forgotten);
}

TEST_F(ResultMgrRunTest, OfSeveralItemsTurnBusyAndIdleOnce) {
    AddItem("a");
    AddItem("b");
    support::OwnerAnswers("running", "");
    Run("a");
    Run("b");
    Report("a", "success", "");
    Report("b", "success", "");
    UnLock("a");
    UnLock("b");
    EXPECT_EQ(support::Events(), (Lines{"event 9: 0", "event 8: a|running|begin", "event 8: b|running|begin",
                                        "event 8: a|success|", "event 8: b|success|", "event 9: 1"}));
}

TEST_F(ResultMgrRunTest, WhoseOwnerIsAbsentAreRunErrors) {
    AddItem("a");
    EXPECT_EQ(Run("a"), "a|fail|run err");
    EXPECT_EQ(support::LogLines(), (Lines{"1 PipeliningMgr 17: OsMsgSynSend fail, start 80020001, ret = 80020008 ",
                                          "3 ResultMgr 13: RunResult ret[10] name[a] result[fail]"}));
    EXPECT_EQ(support::Events(),
              (Lines{"event 9: 0", "event 8: a|running|begin", "event 8: a|fail|run err", "event 9: 1"}));
}

TEST_F(ResultMgrRunTest, WhoseOwnerIsSilentAreRunErrorsAfterFiveMinutes) {
    AddItem("a");
    support::OwnerAnswers("success", "", 300001);
    EXPECT_EQ(Run("a"), "a|fail|run err");
    EXPECT_EQ(kivo::fake::Now(), 1700000300000U);
}

TEST_F(ResultMgrRunTest, WithAnEmptyAnswerAreRunErrors) {
    AddItem("a");
    support::OwnerDoes([](const Entry& /*message*/) { return Answer{}; });
    EXPECT_EQ(Run("a"), "a|fail|run err");
    EXPECT_EQ(support::LogLines().back(), "3 ResultMgr 13: RunResult ret[0] name[a] result[fail]");
}

TEST_F(ResultMgrRunTest, OfAnItemDeletedMeanwhileGiveTheOwnersAnswer) {
    AddItem("a");
    support::OwnerDoes([this](const Entry& /*message*/) {
        m_mgr.DelItem("a");
        return Answer{.data = support::BytesOf(support::Result("a", "running", "late"))};
    });
    EXPECT_EQ(Run("a"), "a|running|late");
    EXPECT_EQ(support::LogLines().back(), "1 ResultMgr 13: can not find name [a]");
    EXPECT_EQ(Stored("a"), "||");
    EXPECT_EQ(kivo::fake::LiveThreads(), 0U);
    EXPECT_EQ(support::Events(),
              (Lines{"event 9: 0", "event 8: a|running|begin", "event 8: a|running|begin", "event 9: 1"}));
}

TEST_F(ResultMgrRunTest, BroadcastTheRecordWithoutRemainsOfEarlierTexts) {
    AddItem("a");
    support::OwnerAnswers("a status of 31 bytes, no more..", "a long text of the run before");
    Run("a");
    kivo::fake::ClearJournal();
    Run("a");
    EXPECT_EQ(kivo::fake::Journal().at(1).data, support::BytesOf(support::Result("a", "running", "begin")));
}

TEST_F(ResultMgrRunTest, GoOnWhenBroadcastsAreRefused) {
    AddItem("a");
    support::OwnerAnswers("success", "");
    kivo::fake::Fail("OsMsgBroadcastEvent", 0x80020009, 4);
    EXPECT_EQ(Run("a"), "a|success|");
    EXPECT_EQ(support::LogLines(),
              (Lines{"1 ResultMgr 13: broadcast err id[9]", "1 ResultMgr 13: broadcast err id[8]",
                     "3 ResultMgr 13: RunResult ret[0] name[a] result[success]", "1 ResultMgr 13: broadcast err id[8]",
                     "1 ResultMgr 13: broadcast err id[9]"}));
    EXPECT_EQ(ResultMgrPeer(m_mgr).Entry("a").startCount, 0);
}

TEST_F(ResultMgrRunTest, OfAnOwnerWhoseTextsLackTheirNulAreReadWithinTheirFields) {
    AddItem("a");
    tagKivoOmInspectionResult full{};
    std::memset(&full, 'x', sizeof(full));
    support::OwnerDoes([full](const Entry& /*message*/) { return Answer{.data = support::BytesOf(full)}; });
    EXPECT_EQ(Run("a"), "a|" + std::string(32, 'x') + "|" + std::string(128, 'x'));
    EXPECT_EQ(support::LogLines(),
              (Lines{"3 ResultMgr 13: RunResult ret[0] name[a] result[" + std::string(32, 'x') + "]"}));
}

TEST_F(ResultMgrRunTest, ByRunResultPassTheTableBy) {
    AddItem("a");
    support::OwnerAnswers("success", "stopped");
    tagKivoOmInspectionRequestMsg request{"a", 3, 0, "{}"};
    tagKivoOmInspectionResult result = support::Result("x", "y", "z");
    m_mgr.RunResult(request, result);
    EXPECT_EQ(support::Show(result), "a|success|stopped");
    EXPECT_EQ(support::Steps(), (Lines{"ask 4 of owner:own_task", "OsMsgSynRespFree",
                                       "3 ResultMgr 13: RunResult ret[0] name[a] result[success]"}));
    EXPECT_EQ(Stored("a"), "a|idle|init");
}

TEST_F(ResultMgrRunTest, ByRunResultOfAnUnknownItemAreRunErrors) {
    tagKivoOmInspectionRequestMsg request{"a", 3, 0, "{}"};
    tagKivoOmInspectionResult result = support::Result("x", "y", "z");
    m_mgr.RunResult(request, result);
    EXPECT_EQ(support::Show(result), "a|fail|run err");
    EXPECT_EQ(support::LogLines(), (Lines{"1 PipeliningMgr 17: [GetInspectResult]not found inspect : a ",
                                          "3 ResultMgr 13: RunResult ret[12] name[a] result[fail]"}));
}

TEST_F(ResultMgrRunTest, ReportedAsFinalAreStampedAndStillHeld) {
    AddItem("a");
    support::OwnerAnswers("running", "");
    Run("a");
    kivo::fake::Pass(3);
    kivo::fake::ClearJournal();
    Report("a", "success", "all well");
    EXPECT_EQ(support::Events(), Lines{});
    EXPECT_EQ(Stored("a"), "a|success|all well");
    EXPECT_EQ(m_item.startTime, 1700000000000U);
    EXPECT_EQ(m_item.endTime, 1700000003000U);
    EXPECT_EQ(ResultMgrPeer(m_mgr).Entry("a").startCount, 1);
    EXPECT_EQ(ResultMgrPeer(m_mgr).Entry("a").taskId, 0U);
}

TEST_F(ResultMgrRunTest, ReportedAreKeptWithAll192Bytes) {
    AddItem("a");
    for (const char* status : {"success", "running"}) {
        SCOPED_TRACE(status);
        m_mgr.SetResultStatic("a", "running");
        tagKivoOmInspectionResult result{};
        std::memset(&result, 'x', sizeof(result));  // behind the texts, too
        std::memcpy(result.name, "a", sizeof("a"));
        std::memcpy(result.status, status, std::strlen(status) + 1);
        std::memcpy(result.text, "text", sizeof("text"));
        m_mgr.SetResult(result);
        EXPECT_EQ(Stored("a"), std::string("a|") + status + "|text");
        EXPECT_EQ(support::BytesOf(m_item.result), support::BytesOf(result));
    }
}

TEST_F(ResultMgrRunTest, ReportedAsFinalStopTheirWaitTimer) {
    AddItem("a");
    support::OwnerAnswers("running", "");
    Run("a");
    kivo::fake::Settle();
    Report("a", "success", "");
    kivo::fake::Pass(1);
    EXPECT_EQ(kivo::fake::LiveThreads(), 0U);
    EXPECT_EQ(support::LogLines().back(), "3 ResultMgr 13: stop wait[a]");
}

TEST_F(ResultMgrRunTest, ReportedAsRunningKeepTheirWaitTimer) {
    AddItem("a");
    support::OwnerAnswers("running", "");
    Run("a");
    const uint32_t taskId = ResultMgrPeer(m_mgr).Entry("a").taskId;
    Report("a", "running", "50%");
    EXPECT_EQ(Stored("a"), "a|running|50%");
    EXPECT_EQ(m_item.endTime, 0U);
    EXPECT_EQ(ResultMgrPeer(m_mgr).Entry("a").taskId, taskId);
    kivo::fake::Pass(2);
    EXPECT_EQ(kivo::fake::LiveThreads(), 1U);
}

TEST_F(ResultMgrRunTest, ReportedAsRunningForAnItemThatIsNotAreIgnored) {
    AddItem("a");
    Report("a", "running", "50%");
    EXPECT_EQ(Stored("a"), "a|idle|init");
    EXPECT_EQ(support::Steps(), Lines{});
}

TEST_F(ResultMgrRunTest, ReportedAsFinalForAnIdleItemAreStored) {
    AddItem("a");
    Report("a", "fail", "x");
    EXPECT_EQ(Stored("a"), "a|fail|x");
    EXPECT_EQ(m_item.endTime, 1700000000000U);
}

TEST_F(ResultMgrRunTest, ReportedForAnUnknownItemAreIgnored) {
    Report("nobody", "success", "x");
    EXPECT_EQ(support::Steps(), Lines{});
    EXPECT_EQ(Stored("nobody"), "||");
}

TEST_F(ResultMgrRunTest, OfGroupsCountTheirStarts) {
    m_mgr.AddGroup({"g"});
    EXPECT_EQ(m_mgr.StartGroup("nobody"), 0U);
    EXPECT_EQ(m_mgr.StartGroup("g"), 1U);
    EXPECT_EQ(m_mgr.StartGroup("g"), 2U);
    EXPECT_EQ(support::Steps(), (Lines{"event 9: 0", "event 8: g|running|g"}));
    EXPECT_EQ(Stored("g"), "g|running|g");
    EXPECT_EQ(m_item.startTime, 1700000000000U);
}

TEST_F(ResultMgrRunTest, OfGroupsEndWithTheLastStop) {
    m_mgr.AddGroup({"g"});
    m_mgr.StartGroup("g");
    m_mgr.StartGroup("g");
    kivo::fake::Pass(2);
    kivo::fake::ClearJournal();
    m_mgr.StopGroup("g");
    EXPECT_EQ(support::Steps(), Lines{});
    EXPECT_EQ(Stored("g"), "g|running|g");
    m_mgr.StopGroup("g");
    EXPECT_EQ(support::Steps(), (Lines{"event 8: g|success|g", "event 9: 1"}));
    EXPECT_EQ(Stored("g"), "g|success|g");
    EXPECT_EQ(m_item.endTime, 1700000002000U);
}

TEST_F(ResultMgrRunTest, OfGroupsThatAreNotStartedOrUnknownAreNotStopped) {
    m_mgr.AddGroup({"g"});
    m_mgr.StopGroup("g");
    m_mgr.StopGroup("nobody");
    EXPECT_EQ(support::Steps(), Lines{});
    EXPECT_EQ(Stored("g"), "g|success|init");
}
