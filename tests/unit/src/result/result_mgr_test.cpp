// The result table: items, groups and requesters come and go.
#include "result/result_mgr.h"

#include <cstddef>
#include <string>
#include <type_traits>
#include <vector>

#include "support/journal_text.h"
#include "support/result_test.h"
#include "task/inspacet_task.h"

using kivo::fake::Kind;
using support::Lines;

static_assert(!std::is_polymorphic_v<ResultMgr>);
static_assert(std::is_same_v<decltype(ResultData::startCount), uint8_t>);

namespace {

class ResultMgrTest : public support::ResultTest {
protected:
    // "proc:task" of each requester.
    Lines Requesters(const std::string& name) {
        std::vector<InspectClientMsg> list{{"left", "over"}};
        m_mgr.GetRequesterMsg(name, list);
        Lines lines;
        lines.reserve(list.size());
        for (const InspectClientMsg& client : list) {
            lines.push_back(client.procName + ":" + client.taskName);
        }
        return lines;
    }
};

}  // namespace

TEST_F(ResultMgrTest, ADefaultEntryIsEmpty) {
    const ResultData data;
    EXPECT_EQ(data.startCount, 0);
    EXPECT_EQ(data.taskId, 0U);
    EXPECT_TRUE(data.requesters.empty());
}

TEST_F(ResultMgrTest, AddItemIsLoggedThenRegistered) {
    m_mgr.AddItem("a", 0, {"owner", "own_task"});
    EXPECT_EQ(support::Steps(),
              (Lines{"3 ResultMgr 13: add inspection in result: [a] ", "3 ResultMgr 13: result size[1] ",
                     "1 PipeliningMgr 17: add inspection in pipeline: [a] from [owner:own_task] "}));
    m_mgr.AddItem("b", 0, {"owner", "own_task"});
    EXPECT_EQ(support::Steps().at(4), "3 ResultMgr 13: result size[2] ");
}

TEST_F(ResultMgrTest, ANewItemIsIdle) {
    AddItem("a");
    EXPECT_EQ(Stored("a"), "a|idle|init");
    EXPECT_EQ(m_item.startTime, 0U);
    EXPECT_EQ(m_item.endTime, 0U);
}

TEST_F(ResultMgrTest, ANewItemsRecordIsZeroBehindItsTexts) {
    AddItem("a");
    Stored("a");
    EXPECT_EQ(support::BytesOf(m_item.result), support::BytesOf(support::Result("a", "idle", "init")));
}

TEST_F(ResultMgrTest, AnItemNameOf31BytesFits) {
    const std::string name(31, 'n');
    AddItem(name);
    EXPECT_EQ(Stored(name), name + "|idle|init");
    m_mgr.DelItem(name);
}

TEST_F(ResultMgrTest, AnItemNameOf32BytesLeavesTheNameFieldEmptyWithoutALine) {
    const std::string name(32, 'n');
    m_mgr.AddItem(name, 0, {"owner", "own_task"});
    EXPECT_EQ(Stored(name), "|idle|init");
    EXPECT_EQ(support::Steps().size(), 3U);
    m_mgr.DelItem(name);
}

TEST_F(ResultMgrTest, AddItemAgainResetsWhatClientsSeeAndKeepsTheRun) {
    AddItem("a");
    support::OwnerAnswers("running", "");
    Run("a");
    Run("a");  // joins: two holds
    m_mgr.AddRequesterMsg("a", {"client", "task"});
    ResultMgrPeer peer(m_mgr);
    const uint32_t taskId = peer.Entry("a").taskId;
    EXPECT_NE(taskId, 0U);

    m_mgr.AddItem("a", 5000, support::Owner());
    EXPECT_EQ(Stored("a"), "a|idle|init");
    EXPECT_EQ(m_item.startTime, 0U);
    EXPECT_EQ(m_item.endTime, 0U);
    EXPECT_EQ(peer.Entry("a").startCount, 2);
    EXPECT_EQ(peer.Entry("a").taskId, taskId);
    EXPECT_EQ(peer.Entry("a").timeout, 5000U);
    EXPECT_EQ(Requesters("a"), Lines{"client:task"});
}

TEST_F(ResultMgrTest, AddItemAgainKeepsTheFirstOwner) {
    AddItem("a");
    m_mgr.AddItem("a", 0, {"other", "oth_task"});
    kivo::fake::ClearJournal();
    support::OwnerAnswers("success", "");
    Run("a");
    EXPECT_EQ(support::Steps({Kind::kSyncSend}), (Lines{"ask 4 of owner:own_task"}));
}

TEST_F(ResultMgrTest, DelItemOfAnUnknownNameStillUnregistersIt) {
    m_mgr.DelItem("nobody");
    EXPECT_EQ(support::Steps(), (Lines{"3 ResultMgr 13: del inspection in result: [nobody] ",
                                       "1 PipeliningMgr 17: del inspection in pipeline: [nobody] "}));
}

TEST_F(ResultMgrTest, DelItemForgetsAnIdleItemWithoutBroadcasts) {
    AddItem("a");
    m_mgr.DelItem("a");
    EXPECT_EQ(support::Steps(), (Lines{"3 ResultMgr 13: del inspection in result: [a] ",
                                       "1 PipeliningMgr 17: del inspection in pipeline: [a] "}));
    EXPECT_EQ(Stored("a"), "||");
    EXPECT_EQ(Run("a"), "a|fail|no support");
}

TEST_F(ResultMgrTest, DelItemEndsTheRunThenUnregisters) {
    AddItem("a");
    support::OwnerAnswers("running", "10%");
    Run("a");
    Run("a");  // two holds: the stop is forced
    kivo::fake::Settle();
    kivo::fake::ClearJournal();
    m_mgr.DelItem("a");
    EXPECT_EQ(support::Steps(), (Lines{"3 ResultMgr 13: del inspection in result: [a] ", "event 8: a|running|10%",
                                       "event 9: 1", "1 PipeliningMgr 17: del inspection in pipeline: [a] "}));
}

TEST_F(ResultMgrTest, DelItemStopsTheWaitTimer) {
    AddItem("a");
    support::OwnerAnswers("running", "");
    Run("a");
    kivo::fake::Settle();
    EXPECT_EQ(kivo::fake::LiveThreads(), 1U);
    m_mgr.DelItem("a");
    kivo::fake::ClearJournal();
    kivo::fake::Pass(1);
    EXPECT_EQ(kivo::fake::LiveThreads(), 0U);
    EXPECT_EQ(support::Steps({Kind::kLog}), (Lines{"3 ResultMgr 13: stop wait[a]"}));
}

TEST_F(ResultMgrTest, GroupsBeginAsSuccess) {
    m_mgr.AddGroup({"g1", "g2"});
    EXPECT_EQ(Stored("g1"), "g1|success|init");
    EXPECT_EQ(m_item.startTime, 0U);
    EXPECT_EQ(m_item.endTime, 0U);
    EXPECT_EQ(Stored("g2"), "g2|success|init");
    EXPECT_EQ(support::Steps(), Lines{});
}

TEST_F(ResultMgrTest, AddGroupAgainKeepsItsRuns) {
    m_mgr.AddGroup({"g1"});
    m_mgr.StartGroup("g1");
    m_mgr.AddRequesterMsg("g1", {"client", "task"});
    m_mgr.AddGroup({"g1"});
    EXPECT_EQ(Stored("g1"), "g1|success|init");
    EXPECT_EQ(m_item.startTime, 0U);
    EXPECT_EQ(Requesters("g1"), Lines{"client:task"});
    EXPECT_EQ(m_mgr.StartGroup("g1"), 2U);
}

TEST_F(ResultMgrTest, RequestersAreKeptInOrderWithDuplicates) {
    AddItem("a");
    m_mgr.AddRequesterMsg("a", {"p1", "t1"});
    m_mgr.AddRequesterMsg("a", {"p2", "t2"});
    m_mgr.AddRequesterMsg("a", {"p1", "t1"});
    EXPECT_EQ(support::Steps(),
              (Lines{"3 ResultMgr 13: add requester [a] to [p1:t1]", "3 ResultMgr 13: add requester [a] to [p2:t2]",
                     "3 ResultMgr 13: add requester [a] to [p1:t1]"}));
    EXPECT_EQ(Requesters("a"), (Lines{"p1:t1", "p2:t2", "p1:t1"}));
}

TEST_F(ResultMgrTest, ARequesterOfAnUnknownItemIsOnlyLogged) {
    m_mgr.AddRequesterMsg("nobody", {"p1", "t1"});
    EXPECT_EQ(support::Steps(), (Lines{"3 ResultMgr 13: add requester [nobody] to [p1:t1]"}));
    EXPECT_EQ(Stored("nobody"), "||");
}

TEST_F(ResultMgrTest, DelRequesterRemovesTheLastOneWhicheverIsNamed) {
    AddItem("a");
    m_mgr.AddRequesterMsg("a", {"A", "ta"});
    m_mgr.AddRequesterMsg("a", {"B", "tb"});
    kivo::fake::ClearJournal();
    m_mgr.DelRequesterMsg("a", {"A", "ta"});
    EXPECT_EQ(support::Steps(), (Lines{"3 ResultMgr 13: del requester [a] to [A:ta]"}));
    EXPECT_EQ(Requesters("a"), Lines{"A:ta"});
}

TEST_F(ResultMgrTest, DelRequesterOfAnEmptyListOrAnUnknownItemChangesNothing) {
    AddItem("a");
    m_mgr.DelRequesterMsg("a", {"A", "ta"});
    m_mgr.DelRequesterMsg("nobody", {"A", "ta"});
    EXPECT_EQ(support::Steps(), (Lines{"3 ResultMgr 13: del requester [a] to [A:ta]",
                                       "3 ResultMgr 13: del requester [nobody] to [A:ta]"}));
    EXPECT_EQ(Requesters("a"), Lines{});
}

TEST_F(ResultMgrTest, GetRequestersReplacesTheListButNotForAnUnknownItem) {
    AddItem("a");
    EXPECT_EQ(Requesters("a"), Lines{});
    EXPECT_EQ(Requesters("nobody"), Lines{"left:over"});
}

TEST_F(ResultMgrTest, InitSetsTheCountOfRunsToZero) {
    m_mgr.AddGroup({"g1", "g2"});
    m_mgr.StartGroup("g1");
    m_mgr.Init();
    kivo::fake::ClearJournal();
    m_mgr.StartGroup("g2");
    EXPECT_EQ(support::Events().at(0), "event 9: 0");
}
