// Group runs on the job: the record, the stop, and the return to rest.
#include "handlers/group_run.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "handlers/handlers.h"
#include "support/alloc_failure.h"
#include "support/group.h"
#include "support/handler_call.h"
#include "support/journal_text.h"
#include "support/server_test.h"
#include "task/inspacet_task.h"

using kivo::fake::Entry;
using kivo::fake::Kind;
using support::Call;
using support::Envelope;
using support::Lines;

namespace {

class GroupRunTest : public support::ServerTest {
protected:
    void SetUp() override {
        ServerTest::SetUp();
        g_resultMgr.AddGroup({"unknown_group", "kivo_group_trace"});
    }

    static uint32_t Start(const std::vector<std::string>& items) {
        Envelope message(19, support::GroupPayload(items));
        return Call(Inspect::ASyncDealGroup, message).Number();
    }

    static uint32_t Stop(uint32_t taskId) {
        Envelope message(6, "");
        message.Param(taskId);
        return Call(Inspect::SyncDealStopGroup, message).Number();
    }

    // The owner answers items called "at_once*" with "success", all others with "running".
    static void OwnerAnswersByName() {
        support::OwnerDoes([](const Entry& message) {
            const std::string name(reinterpret_cast<const char*>(message.data.data()));
            const bool atOnce = name.rfind("at_once", 0) == 0;
            return kivo::fake::Answer{
                0, support::BytesOf(support::Result(name, atOnce ? "success" : "running", atOnce ? "ok" : "wait"))};
        });
    }

    static void Report(const std::string& name, const char* status, const char* text) {
        tagKivoOmInspectionResult result = support::Result(name, status, text);
        g_resultMgr.SetResult(result);
    }

    // The group records that were sent, and to whom.
    static std::vector<Entry> Records() {
        std::vector<Entry> records = kivo::fake::Journal();
        std::erase_if(records, [](const Entry& entry) { return entry.kind != Kind::kAsyncSend || entry.id != 1; });
        return records;
    }

    static tagKivoOmInspectionGroupResult Record(const Entry& entry) {
        tagKivoOmInspectionGroupResult record{};
        EXPECT_EQ(entry.data.size(), 6688U);
        std::memcpy(&record, entry.data.data(), std::min(sizeof(record), entry.data.size()));
        return record;
    }

    // Requests to the owner whose text holds `part`, as the names they ask for.
    static Lines AskedWith(const std::string& part) {
        Lines names;
        for (const Entry& entry : kivo::fake::Journal()) {
            if (entry.kind != Kind::kSyncSend) {
                continue;
            }
            const std::string payload(entry.data.begin(), entry.data.end());
            if (payload.find(part) != std::string::npos) {
                names.emplace_back(payload.c_str());
            }
        }
        return names;
    }
};

}  // namespace

TEST_F(GroupRunTest, ItsWholeLifeInOrder) {
    AddItem("at_once");
    AddItem("later");
    OwnerAnswersByName();
    kivo::fake::ClearJournal();
    const uint32_t taskId = Start({"at_once", "later"});
    const std::string id = std::to_string(taskId);
    kivo::fake::Pass(3);
    Report("later", "success", "at last");
    kivo::fake::Pass(5);
    EXPECT_EQ(Stop(taskId), 0U);
    kivo::fake::Pass(1);
    Lines steps = support::Steps();
    std::erase_if(steps, [](const std::string& step) { return step.rfind("OsPthread", 0) == 0; });
    EXPECT_EQ(steps, (Lines{
                         "event 9: 0",
                         "event 8: unknown_group|running|unknown_group",
                         "3 inspect_dealmsg 19: start group [" + id + "]",
                         R"(3 inspect_dealmsg 19: InspectSingle[{"name":"at_once","cmd":"go"}][at_once][go])",
                         "event 8: at_once|running|begin",
                         "ask 4 of owner:own_task",
                         "OsMsgSynRespFree",
                         "3 ResultMgr 13: RunResult ret[0] name[at_once] result[success]",
                         "event 8: at_once|success|ok",
                         R"(3 inspect_dealmsg 19: InspectSingle[{"name":"later","cmd":"go"}][later][go])",
                         "event 8: later|running|begin",
                         "ask 4 of owner:own_task",
                         "OsMsgSynRespFree",
                         "3 ResultMgr 13: RunResult ret[0] name[later] result[running]",
                         "3 ResultMgr 13: start wait[later]",
                         "event 8: later|success|at last",
                         "send 1 to client:cli_reply: <6688 bytes>",
                         "3 ResultMgr 13: stop wait[later]",
                         "3 inspect_dealmsg 19: stop group [" + id + "]",
                         "event 8: unknown_group|success|unknown_group",
                         "event 9: 1",
                         "1 inspect_dealmsg 19: group task set : at_once to idle",
                         "3 ResultMgr 13: SetResultStatic at_once to idle",
                         "1 inspect_dealmsg 19: group task set : later to idle",
                         "3 ResultMgr 13: SetResultStatic later to idle",
                     }));
    EXPECT_EQ(Stored("later"), "later|idle|at last");
    EXPECT_EQ(kivo::fake::LiveThreads(), 0U);
}

TEST_F(GroupRunTest, TheRecordHoldsTaskCountAndItemsInTheOrderOfTheRequest) {
    AddItem("at_once_b");
    AddItem("at_once_a");
    OwnerAnswersByName();
    const uint32_t taskId = Start({"at_once_b", "nobody", "at_once_a"});
    kivo::fake::Pass(1);
    ASSERT_EQ(Records().size(), 1U);
    EXPECT_EQ(Records()[0].proc + ":" + Records()[0].task, "client:cli_reply");
    const tagKivoOmInspectionGroupResult record = Record(Records()[0]);
    EXPECT_EQ(record.taskId, taskId);
    EXPECT_EQ(record.count, 3U);
    EXPECT_EQ(support::Show(record.items[0].result), "at_once_b|success|ok");
    EXPECT_EQ(record.items[0].startTime, 1700000001000U);
    EXPECT_EQ(record.items[0].endTime, 1700000001000U);
    EXPECT_EQ(support::Show(record.items[1].result), "nobody|fail|no support");
    EXPECT_EQ(support::Show(record.items[2].result), "at_once_a|success|ok");
    EXPECT_EQ(support::BytesOf(record.items[3]), support::Bytes(208, 0));
    EXPECT_EQ(Stop(taskId), 0U);
}

TEST_F(GroupRunTest, Of40TextsTheFirst32Run) {
    std::vector<std::string> items;
    for (int i = 0; i < 40; ++i) {
        items.push_back("item" + std::to_string(i));
    }
    const uint32_t taskId = Start(items);
    kivo::fake::Pass(1);
    ASSERT_EQ(Records().size(), 1U);
    const tagKivoOmInspectionGroupResult record = Record(Records()[0]);
    EXPECT_EQ(record.count, 32U);
    EXPECT_EQ(support::Show(record.items[31].result), "item31|fail|no support");
    const Lines lines = support::LogLines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "1 ResultMgr 13: Get Result fail, name [item31]"), 1);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "1 ResultMgr 13: Get Result fail, name [item32]"), 0);
    EXPECT_EQ(Stop(taskId), 0U);
    kivo::fake::Pass(1);
    // What did not run is not reset either.
    const Lines all = support::LogLines();
    EXPECT_EQ(std::count_if(all.begin(), all.end(),
                            [](const std::string& line) {
                                return line.rfind("1 inspect_dealmsg 19: group task set : item", 0) == 0;
                            }),
              32);
}

TEST_F(GroupRunTest, AStopWhileItsFirstItemIsAskedForRunsNoSecond) {
    AddItem("slow");
    AddItem("second");
    support::OwnerAnswers("success", "took its time", 5000);
    const uint32_t taskId = Start({"slow", "second"});
    kivo::fake::Pass(3);
    EXPECT_EQ(Stop(taskId), 0U);
    kivo::fake::Pass(10);
    EXPECT_EQ(AskedWith("go"), (Lines{"slow"}));
    ASSERT_EQ(Records().size(), 1U);
    EXPECT_EQ(Record(Records()[0]).count, 2U);
}

TEST_F(GroupRunTest, StartsAfterOneSecond) {
    AddItem("at_once");
    OwnerAnswersByName();
    const uint32_t taskId = Start({"at_once"});
    kivo::fake::Settle();
    EXPECT_EQ(AskedWith("go"), Lines{});
    kivo::fake::Pass(1);
    EXPECT_EQ(AskedWith("go"), (Lines{"at_once"}));
    Stop(taskId);
}

TEST_F(GroupRunTest, WithoutAStopItEndsAfter120SecondsAndSaysSo) {
    AddItem("at_once");
    OwnerAnswersByName();
    const uint32_t taskId = Start({"at_once"});
    kivo::fake::Pass(1);
    ASSERT_EQ(Records().size(), 1U);
    kivo::fake::ClearJournal();
    kivo::fake::Pass(119);
    EXPECT_EQ(support::Steps(), Lines{});
    kivo::fake::Pass(1);
    EXPECT_EQ(support::Steps(), (Lines{"1 inspect_dealmsg 19: group wait stop overtime[" + std::to_string(taskId) + "]",
                                       "event 8: unknown_group|success|unknown_group", "event 9: 1",
                                       "1 inspect_dealmsg 19: group task set : at_once to idle",
                                       "3 ResultMgr 13: SetResultStatic at_once to idle"}));
    EXPECT_EQ(kivo::fake::LiveThreads(), 0U);
}

TEST_F(GroupRunTest, AStopAfterTheRecordEndsItWithinASecond) {
    AddItem("at_once");
    OwnerAnswersByName();
    const uint32_t taskId = Start({"at_once"});
    kivo::fake::Pass(10);
    EXPECT_EQ(Stop(taskId), 0U);
    kivo::fake::Pass(1);
    EXPECT_EQ(kivo::fake::LiveThreads(), 0U);
    EXPECT_EQ(Stop(taskId), 1U);  // gone
}

TEST_F(GroupRunTest, AStopWhileItemsArePendingAsksEachPendingItemOnceToStop) {
    AddItem("at_once");
    AddItem("later_a");
    AddItem("later_b");
    OwnerAnswersByName();
    const uint32_t taskId = Start({"at_once", "later_a", "later_b"});
    kivo::fake::Pass(3);
    kivo::fake::ClearJournal();
    EXPECT_EQ(Stop(taskId), 0U);
    kivo::fake::Pass(5);
    EXPECT_EQ(AskedWith("\"stop\""), (Lines{"later_a", "later_b"}));
    EXPECT_TRUE(Records().empty());  // both still run
    Report("later_a", "fail", "stopped");
    Report("later_b", "fail", "stopped");
    kivo::fake::Pass(1);
    ASSERT_EQ(Records().size(), 1U);
    EXPECT_EQ(support::Show(Record(Records()[0]).items[2].result), "later_b|fail|stopped");
    EXPECT_EQ(kivo::fake::LiveThreads(), 0U);  // it does not wait for a second stop
}

// The flag is looked at before the first second's sleep, too.
TEST_F(GroupRunTest, AStopWhileItsLastItemIsAskedForReachesTheOwnerAtOnce) {
    AddItem("slow");
    support::OwnerAnswers("running", "took its time", 5000);
    const uint32_t taskId = Start({"slow"});
    kivo::fake::Pass(3);
    EXPECT_EQ(Stop(taskId), 0U);
    kivo::fake::Pass(3);
    kivo::fake::Settle();
    EXPECT_EQ(AskedWith("\"stop\""), (Lines{"slow"}));
    Report("slow", "fail", "stopped");
    EXPECT_TRUE(kivo::fake::Finish());
}

TEST_F(GroupRunTest, AStopBeforeItsFirstItemRunsNone) {
    AddItem("at_once");
    OwnerAnswersByName();
    const uint32_t taskId = Start({"at_once"});
    EXPECT_EQ(Stop(taskId), 0U);
    kivo::fake::Pass(1);
    EXPECT_EQ(AskedWith("go"), Lines{});
    ASSERT_EQ(Records().size(), 1U);
    EXPECT_EQ(Record(Records()[0]).count, 1U);
    EXPECT_EQ(support::Show(Record(Records()[0]).items[0].result), "||");
    EXPECT_EQ(kivo::fake::LiveThreads(), 0U);
}

TEST_F(GroupRunTest, ItemsLeaveThePendingListAsTheirResultsCome) {
    AddItem("later_a");
    AddItem("later_b");
    OwnerAnswersByName();
    const uint32_t taskId = Start({"later_a", "later_b"});
    kivo::fake::Pass(1);
    kivo::fake::ClearJournal();
    Report("later_b", "success", "first");
    kivo::fake::Pass(1);
    EXPECT_EQ(support::Events(), (Lines{"event 8: later_b|success|first"}));
    Report("later_a", "success", "second");
    kivo::fake::Pass(1);
    EXPECT_EQ(support::Events(), (Lines{"event 8: later_b|success|first", "event 8: later_a|success|second"}));
    const tagKivoOmInspectionGroupResult record = Record(Records().at(0));
    EXPECT_EQ(support::Show(record.items[0].result), "later_a|success|second");
    EXPECT_EQ(support::Show(record.items[1].result), "later_b|success|first");
    Stop(taskId);
}

TEST_F(GroupRunTest, AnItemWhoseTimeLimitPassesIsInTheRecordAsTimeout) {
    AddItem("later", 2000);
    OwnerAnswersByName();
    const uint32_t taskId = Start({"later"});
    kivo::fake::Pass(10);
    ASSERT_EQ(Records().size(), 1U);
    EXPECT_EQ(support::Show(Record(Records()[0]).items[0].result), "later|fail|timeout");
    Stop(taskId);
}

TEST_F(GroupRunTest, TextsWithoutANameAreTheEmptyItem) {
    Envelope message(19, std::string("nonsense\0\0", 10));
    const uint32_t taskId = Call(Inspect::ASyncDealGroup, message).Number();
    Stop(taskId);
    kivo::fake::Pass(1);
    EXPECT_EQ(support::LogLines().back(), "1 inspect_dealmsg 19: group task set :  to idle");
}

TEST_F(GroupRunTest, ARunThatRanOutOfMemoryBringsTheGroupAndItsItemsToRest) {
    AddItem("item");
    g_resultMgr.SetResultStatic("item", "success");
    EXPECT_EQ(g_resultMgr.StartGroup("unknown_group"), 1U);
    TaskData task;
    Inspect::GroupRequest request{{support::Request("item", "go")}, {"client", "cli_reply"}, "unknown_group"};
    // Before the first item: room for a name of 32 bytes and its end.
    const support::AllocFailure failure(support::AllocFailure::Kind::kThrowing, 33);
    Inspect::RunGroup(std::move(request), task);
    EXPECT_TRUE(failure.Happened());
    const Lines lines = support::LogLines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "1 inspect_dealmsg 19: group run given up: std::bad_alloc"), 1);
    EXPECT_EQ(Stored("unknown_group"), "unknown_group|success|unknown_group");
    EXPECT_EQ(Stored("item"), "item|idle|init");
    EXPECT_TRUE(Records().empty());
}

TEST_F(GroupRunTest, AnItemWithoutMemoryForItsStartFailsAndTheOthersRun) {
    const std::string name(29, 'n');  // its copy takes 30 bytes, like nothing else
    AddItem(name);
    AddItem("item");
    support::OwnerAnswers("success", "fine");
    EXPECT_EQ(g_resultMgr.StartGroup("unknown_group"), 1U);
    TaskData task;
    Inspect::GroupRequest request{
        {support::Request(name, "go"), support::Request("item", "go")}, {"client", "cli_reply"}, "unknown_group"};
    const support::AllocFailure failure(support::AllocFailure::Kind::kThrowing, 30);
    Inspect::RunGroup(std::move(request), task);
    EXPECT_TRUE(failure.Happened());
    const Lines lines = support::LogLines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "1 inspect_dealmsg 19: start of an item given up: std::bad_alloc"),
              1);
    ASSERT_EQ(Records().size(), 1U);
    const auto record = Record(Records()[0]);
    EXPECT_EQ(support::Show(record.items[0].result), name + "|fail|run err");
    EXPECT_EQ(support::Show(record.items[1].result), "item|success|fine");
}

// ---- the stop routine ----

TEST_F(GroupRunTest, StopItemAsksTheOwnerWithATextWhoseNulIsNotCounted) {
    AddItem("item");
    support::OwnerAnswers("success", "stopping");
    Inspect::StopItem("item");
    EXPECT_EQ(support::Steps(),
              (Lines{"3 inspect_dealmsg 19: stop name[item]", "ask 4 of owner:own_task", "OsMsgSynRespFree",
                     "3 ResultMgr 13: RunResult ret[0] name[item] result[success]"}));
    const std::vector<Entry> journal = kivo::fake::Journal();
    const auto ask =
        std::find_if(journal.begin(), journal.end(), [](const Entry& entry) { return entry.kind == Kind::kSyncSend; });
    ASSERT_NE(ask, journal.end());
    const std::string text = R"({"name":"item", "cmd":"stop"})";
    ASSERT_EQ(ask->data.size(), 36 + text.size() + 1);
    EXPECT_EQ(ask->data[32], text.size());
    EXPECT_EQ(std::string(ask->data.begin() + 36, ask->data.end() - 1), text);
    EXPECT_EQ(Stored("item"), "item|idle|init");  // the answer is not kept
}

TEST_F(GroupRunTest, StopItemOfANameThatDoesNotFitAsksNobody) {
    const std::string name(32, 'n');
    Inspect::StopItem(name);
    EXPECT_EQ(support::Steps(), (Lines{"3 inspect_dealmsg 19: stop name[" + name + "]",
                                       "1 inspect_dealmsg 19: stop fail[" + name + "]"}));
}
