// The bare start and stop of a run on an entry, with its counts and texts.
#include <string>

#include "result/result_mgr.h"
#include "support/journal_text.h"
#include "support/result_test.h"

using support::Lines;

namespace {

class ResultMgrStartStopTest : public support::ResultTest {
protected:
    void SetUp() override {
        ResultTest::SetUp();
        m_data.result = support::Result("entry", "status", "text");
    }

    ResultMgrPeer m_peer{m_mgr};
    ResultData m_data;
};

}  // namespace

TEST_F(ResultMgrStartStopTest, TheFirstStartBroadcastsBusyThenTheRun) {
    m_peer.Start(m_data);
    EXPECT_EQ(support::Steps(), (Lines{"event 9: 0", "event 8: entry|status|text"}));
    EXPECT_EQ(m_data.startCount, 1);
    EXPECT_EQ(m_data.startTime, 1700000000000U);
}

TEST_F(ResultMgrStartStopTest, AnotherStartOnlyCounts) {
    m_peer.Start(m_data);
    kivo::fake::Pass(1);
    kivo::fake::ClearJournal();
    m_peer.Start(m_data);
    EXPECT_EQ(support::Steps(), Lines{});
    EXPECT_EQ(m_data.startCount, 2);
    EXPECT_EQ(m_data.startTime, 1700000000000U);
}

TEST_F(ResultMgrStartStopTest, AStartWithATextSetsItBeforeTheBroadcast) {
    m_peer.Start(m_data, "begun");
    EXPECT_EQ(support::Steps(), (Lines{"event 9: 0", "event 8: entry|status|begun"}));
    m_peer.Start(m_data, "ignored");
    EXPECT_STREQ(m_data.result.text, "begun");
}

TEST_F(ResultMgrStartStopTest, AStartWithATextThatDoesNotFitIsLogged) {
    const std::string text(128, 't');
    m_peer.Start(m_data, text);
    EXPECT_EQ(support::Steps(), (Lines{"event 9: 0", "3 ResultMgr 13: StartInspect strcpy_s " + text + " err, ret 34",
                                       "event 8: entry|status|"}));
}

TEST_F(ResultMgrStartStopTest, AStartWithATextOf127BytesFits) {
    const std::string text(127, 't');
    m_peer.Start(m_data, text);
    EXPECT_EQ(support::Steps(), (Lines{"event 9: 0", "event 8: entry|status|" + text}));
}

TEST_F(ResultMgrStartStopTest, AStopWithoutAStartDoesNothing) {
    m_data.requesters.push_back({"p", "t"});
    m_peer.Stop(m_data, false);
    m_peer.Stop(m_data, true);
    m_peer.Stop(m_data, "text", true);
    EXPECT_EQ(support::Steps(), Lines{});
    EXPECT_EQ(m_data.startCount, 0);
    EXPECT_EQ(m_data.endTime, 0U);
    EXPECT_EQ(m_data.requesters.size(), 1U);
}

TEST_F(ResultMgrStartStopTest, TheLastStopEndsTheRun) {
    m_peer.Start(m_data);
    m_data.requesters.push_back({"p", "t"});
    kivo::fake::Pass(4);
    kivo::fake::ClearJournal();
    m_peer.Stop(m_data, false);
    EXPECT_EQ(support::Steps(), (Lines{"event 8: entry|status|text", "event 9: 1"}));
    EXPECT_EQ(m_data.startCount, 0);
    EXPECT_EQ(m_data.endTime, 1700000004000U);
    EXPECT_TRUE(m_data.requesters.empty());
}

TEST_F(ResultMgrStartStopTest, AnUnforcedStopOfOneOfTwoRunsOnlyCounts) {
    m_peer.Start(m_data);
    m_peer.Start(m_data);
    m_data.requesters.push_back({"p", "t"});
    kivo::fake::ClearJournal();
    m_peer.Stop(m_data, false);
    EXPECT_EQ(support::Steps(), Lines{});
    EXPECT_EQ(m_data.startCount, 1);
    EXPECT_EQ(m_data.endTime, 0U);
    EXPECT_EQ(m_data.requesters.size(), 1U);
}

TEST_F(ResultMgrStartStopTest, AForcedStopEndsTheRunButTakesOneCountOnly) {
    m_peer.Start(m_data);
    m_peer.Start(m_data);
    m_peer.Start(m_data);
    kivo::fake::ClearJournal();
    m_peer.Stop(m_data, true);
    EXPECT_EQ(support::Steps(), (Lines{"event 8: entry|status|text", "event 9: 1"}));
    EXPECT_EQ(m_data.startCount, 2);
}

TEST_F(ResultMgrStartStopTest, AnUnforcedStopAfterAForcedOneEndsTheRunASecondTime) {
    ResultData other;
    other.result = support::Result("other", "s", "t");
    m_peer.Start(other);
    m_peer.Start(m_data);
    m_peer.Start(m_data);
    kivo::fake::ClearJournal();
    m_peer.Stop(m_data, true);  // of two active entries one is left
    EXPECT_EQ(support::Steps(), (Lines{"event 8: entry|status|text"}));
    m_peer.Stop(m_data, false);  // none is left, as it counts
    EXPECT_EQ(support::Steps(), (Lines{"event 8: entry|status|text", "event 8: entry|status|text", "event 9: 1"}));
}

TEST_F(ResultMgrStartStopTest, AStopWithATextSetsItBeforeTheBroadcast) {
    m_peer.Start(m_data);
    m_peer.Start(m_data);
    kivo::fake::ClearJournal();
    m_peer.Stop(m_data, "early", false);
    EXPECT_STREQ(m_data.result.text, "text");
    m_peer.Stop(m_data, "ended", false);
    EXPECT_EQ(support::Steps(), (Lines{"event 8: entry|status|ended", "event 9: 1"}));
}

TEST_F(ResultMgrStartStopTest, AStopWithATextThatDoesNotFitIsLogged) {
    const std::string text(128, 't');
    m_peer.Start(m_data);
    kivo::fake::ClearJournal();
    m_peer.Stop(m_data, text, false);
    EXPECT_EQ(support::Steps(), (Lines{"3 ResultMgr 13: StopInspect strcpy_s " + text + " err, ret 34",
                                       "event 8: entry|status|", "event 9: 1"}));
}
