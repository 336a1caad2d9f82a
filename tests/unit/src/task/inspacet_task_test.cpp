// The task runner.
#include "task/inspacet_task.h"

#include <array>
#include <new>
#include <string>
#include <vector>

#include "support/alloc_failure.h"
#include "support/journal_text.h"
#include "support/platform_test.h"

using support::AllocFailure;
using support::Lines;

/// Occupies an identifier, and looks into the table.
class InspacetTaskPeer {
public:
    static void Occupy(unsigned int id) { InspacetTask::manager.m_tasks[id] = std::make_shared<TaskData>(); }
    static bool Holds(unsigned int id) { return InspacetTask::manager.m_tasks.contains(id); }

    /// The job's record in the table; null when there is none.
    static const TaskData* Record(unsigned int id) {
        return Holds(id) ? InspacetTask::manager.m_tasks.at(id).get() : nullptr;
    }
};

namespace {

class InspacetTaskTest : public support::PlatformTest {
protected:
    static unsigned int CreateEmpty() {
        return InspacetTask::CreateTask([](TaskData& /*task*/) {}, false);
    }

    // A job that polls its flag once a second.
    static unsigned int CreatePolling(bool forceOnly) {
        return InspacetTask::CreateTask(
            [](TaskData& task) {
                while (!task.stopFlag) {
                    kivo::fake::Pass(1);
                }
            },
            forceOnly);
    }
};

}  // namespace

TEST_F(InspacetTaskTest, DefaultTaskDataIsEmpty) {
    const TaskData task;
    EXPECT_FALSE(task.stopFlag);
    EXPECT_FALSE(task.forceOnly);
    EXPECT_EQ(task.taskId, 0U);
    EXPECT_FALSE(task.func);
}

TEST_F(InspacetTaskTest, AJobRunsOnAThreadOfItsOwnWithItsData) {
    std::vector<unsigned int> seen;
    bool forceOnly = false;
    const unsigned int id = InspacetTask::CreateTask(
        [&](TaskData& task) {
            seen.push_back(task.taskId);
            forceOnly = task.forceOnly;
            EXPECT_FALSE(task.stopFlag);
        },
        true);
    EXPECT_TRUE(seen.empty());
    EXPECT_EQ(support::Steps(), (Lines{"OsPthreadDetach"}));
    ASSERT_TRUE(kivo::fake::Finish());
    EXPECT_EQ(seen, std::vector<unsigned int>{id});
    EXPECT_TRUE(forceOnly);
    EXPECT_FALSE(InspacetTaskPeer::Holds(id));
}

TEST_F(InspacetTaskTest, IdentifiersCountUp) {
    const unsigned int first = CreateEmpty();
    EXPECT_EQ(CreateEmpty(), first + 1);
    ASSERT_TRUE(kivo::fake::Finish());
    kivo::fake::SetNow(5);  // the time counts only once
    EXPECT_EQ(CreateEmpty(), first + 2);
}

TEST_F(InspacetTaskTest, IdentifiersInUseAreSkipped) {
    const unsigned int first = CreateEmpty();
    InspacetTaskPeer::Occupy(first + 1);
    InspacetTaskPeer::Occupy(first + 2);
    EXPECT_EQ(CreateEmpty(), first + 3);
    InspacetTask::RemoveTask(first + 1);
    InspacetTask::RemoveTask(first + 2);
}

TEST_F(InspacetTaskTest, AJobIsACopyOfWhatWasGiven) {
    int value = 0;
    std::function<void(TaskData&)> job = [&value](TaskData& /*task*/) { value = 1; };
    InspacetTask::CreateTask(job, false);
    job = nullptr;
    ASSERT_TRUE(kivo::fake::Finish());
    EXPECT_EQ(value, 1);
}

TEST_F(InspacetTaskTest, AStopIsSeenAtTheNextLook) {
    const unsigned int id = CreatePolling(false);
    kivo::fake::Pass(3);
    EXPECT_EQ(kivo::fake::LiveThreads(), 1U);
    EXPECT_EQ(InspacetTask::StopTask(id, false), 0U);
    EXPECT_EQ(kivo::fake::LiveThreads(), 1U);
    EXPECT_TRUE(InspacetTaskPeer::Holds(id));
    kivo::fake::Pass(1);
    EXPECT_EQ(kivo::fake::LiveThreads(), 0U);
    EXPECT_FALSE(InspacetTaskPeer::Holds(id));
}

TEST_F(InspacetTaskTest, AStopMayBeRepeatedWhileTheJobRuns) {
    const unsigned int id = CreatePolling(false);
    EXPECT_EQ(InspacetTask::StopTask(id, false), 0U);
    EXPECT_EQ(InspacetTask::StopTask(id, true), 0U);
}

TEST_F(InspacetTaskTest, AJobForForceOnlyRefusesAnUnforcedStop) {
    const unsigned int id = CreatePolling(true);
    EXPECT_EQ(InspacetTask::StopTask(id, false), 1U);
    kivo::fake::Pass(2);
    EXPECT_EQ(kivo::fake::LiveThreads(), 1U);
    EXPECT_EQ(InspacetTask::StopTask(id, true), 0U);
    kivo::fake::Pass(1);
    EXPECT_EQ(kivo::fake::LiveThreads(), 0U);
}

TEST_F(InspacetTaskTest, AForcedStopWorksOnAnyJob) {
    EXPECT_EQ(InspacetTask::StopTask(CreatePolling(false), true), 0U);
}

TEST_F(InspacetTaskTest, AStopOfAnUnknownJobIs1) {
    EXPECT_EQ(InspacetTask::StopTask(0, true), 1U);
    EXPECT_EQ(InspacetTask::StopTask(4711, false), 1U);
    EXPECT_EQ(support::Steps(), Lines{});
}

TEST_F(InspacetTaskTest, AStopOfAJobThatHasEndedIs1) {
    const unsigned int id = CreateEmpty();
    ASSERT_TRUE(kivo::fake::Finish());
    EXPECT_EQ(InspacetTask::StopTask(id, true), 1U);
}

TEST_F(InspacetTaskTest, WithoutAThreadThereIsNoJob) {
    const unsigned int before = CreateEmpty();
    ASSERT_TRUE(kivo::fake::Finish());
    kivo::fake::ClearJournal();
    kivo::fake::Fail("OsPthreadCreate", 11);
    EXPECT_EQ(CreateEmpty(), 0U);
    EXPECT_EQ(support::Steps(), (Lines{"1 inspacetTask 16: createthread error"}));
    EXPECT_FALSE(InspacetTaskPeer::Holds(before + 1));
    EXPECT_EQ(InspacetTask::StopTask(before + 1, true), 1U);
    EXPECT_EQ(CreateEmpty(), before + 2);
}

TEST_F(InspacetTaskTest, WithoutMemoryThereIsNoJob) {
    const std::array<char, 1000> large{};  // std::function keeps a body of this size on the heap
    const std::function<void(TaskData&)> job = [large](TaskData& /*task*/) { (void)large; };
    const AllocFailure failure(AllocFailure::Kind::kThrowing, 1000);
    EXPECT_EQ(InspacetTask::CreateTask(job, false), 0U);
    EXPECT_TRUE(failure.Happened());
    EXPECT_EQ(support::Steps(), (Lines{"1 inspacetTask 16: createthread error"}));
}

TEST_F(InspacetTaskTest, AThreadWithoutAnEntryEndsAtOnce) {
    EXPECT_EQ(InspacetTask::ThreadFunc(nullptr), nullptr);
    bool ran = false;
    const unsigned int id = InspacetTask::CreateTask([&ran](TaskData& /*task*/) { ran = true; }, false);
    InspacetTask::RemoveTask(id);
    ASSERT_TRUE(kivo::fake::Finish());
    EXPECT_FALSE(ran);
}

TEST_F(InspacetTaskTest, RemovingAnUnknownJobIsSilent) {
    InspacetTask::RemoveTask(4711);
    EXPECT_EQ(support::Steps(), Lines{});
}

TEST_F(InspacetTaskTest, ABodyMayCallTheTaskRunner) {
    unsigned int inner = 0;
    uint32_t stopped = 9;
    InspacetTask::CreateTask(
        [&](TaskData& task) {
            inner = CreateEmpty();
            stopped = InspacetTask::StopTask(task.taskId, false);
        },
        false);
    ASSERT_TRUE(kivo::fake::Finish());
    EXPECT_NE(inner, 0U);
    EXPECT_EQ(stopped, 0U);
}

TEST_F(InspacetTaskTest, DataStayInPlaceWhileOtherJobsComeAndGo) {
    const TaskData* given = nullptr;
    unsigned int idAtEnd = 0;
    bool forceOnlyAtEnd = false;
    const unsigned int id = InspacetTask::CreateTask(
        [&](TaskData& task) {
            given = &task;
            while (!task.stopFlag) {
                kivo::fake::Pass(1);
            }
            idAtEnd = task.taskId;
            forceOnlyAtEnd = task.forceOnly;
        },
        true);
    const TaskData* const record = InspacetTaskPeer::Record(id);
    ASSERT_NE(record, nullptr);
    kivo::fake::Settle();
    EXPECT_EQ(given, record);

    const unsigned int first = CreateEmpty();
    for (unsigned int i = 1; i < 100; ++i) {
        EXPECT_EQ(CreateEmpty(), first + i);
    }
    EXPECT_EQ(InspacetTaskPeer::Record(id), record);
    kivo::fake::Pass(1);
    EXPECT_FALSE(InspacetTaskPeer::Holds(first));
    EXPECT_EQ(InspacetTaskPeer::Record(id), record);
    EXPECT_EQ(record->taskId, id);
    EXPECT_TRUE(record->forceOnly);
    EXPECT_TRUE(record->func);
    EXPECT_FALSE(record->stopFlag);

    EXPECT_EQ(InspacetTask::StopTask(id, true), 0U);
    EXPECT_TRUE(record->stopFlag);
    ASSERT_TRUE(kivo::fake::Finish());
    EXPECT_EQ(idAtEnd, id);
    EXPECT_TRUE(forceOnlyAtEnd);
}

TEST_F(InspacetTaskTest, ABodyThatThrowsEndsItsJobOnly) {
    const unsigned int id = InspacetTask::CreateTask([](TaskData& /*task*/) { throw std::bad_alloc(); }, false);
    ASSERT_TRUE(kivo::fake::Finish());
    EXPECT_EQ(support::LogLines(), (Lines{"1 inspacetTask 16: job given up: std::bad_alloc"}));
    EXPECT_FALSE(InspacetTaskPeer::Holds(id));
}
