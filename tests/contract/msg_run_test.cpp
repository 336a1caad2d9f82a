// The task runner.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "bus_test.h"
#include "thread_starter.h"

namespace {

using support::Ask;
using support::Describe;
using support::Peer;
using support::WaitFor;

std::atomic<uint32_t> g_loopResult;
std::atomic<bool> g_mayLoop;

support::Handler Echo() {
    return [](const TagMsgBlock& message) { return OsMsgSynSendResp(&message, message.data, message.dataLen); };
}

support::Handler Quit() {
    return [](const TagMsgBlock&) {
        OsProcRequestDetach();
        return 0U;
    };
}

uint32_t EnterLoop() {
    g_loopResult = OsMsgTaskRoutineByName("looping");
    return 0;
}

uint32_t EnterLoopLater() {
    EXPECT_TRUE(WaitFor([] { return g_mayLoop.load(); }));
    return OsMsgTaskRoutineByName("late");
}

uint32_t ReturnAtOnce() {
    return 7;
}

class OsTaskRunTest : public support::DetachedTest {
protected:
    void SetUp() override {
        DetachedTest::SetUp();
        g_loopResult = 99;
        g_mayLoop = false;
    }

    void TearDown() override {
        OsProcRequestDetach();
        EXPECT_TRUE(WaitFor([this] { return *running_ == 0; }));
        DetachedTest::TearDown();
    }

    // Runs the tasks on a thread of their own, as "tester".
    template <size_t count>
    void Start(const std::array<OsTaskDescriptor, count>& tasks) {
        ++*running_;
        support::StartThread([tasks, result = result_, running = running_] {
            *result = OsTaskRun("tester", tasks.data(), count);
            --*running;
        });
    }

    // Waits until the task runner serves the task.
    static bool Serves(const char* task) {
        return WaitFor([task] { return Ask("tester", task).result == OS_MSG_OK; });
    }

    uint32_t Result() const {
        EXPECT_TRUE(WaitFor([this] { return *running_ == 0; }));
        return *result_;
    }

private:
    std::shared_ptr<std::atomic<uint32_t>> result_ = std::make_shared<std::atomic<uint32_t>>(99);
    std::shared_ptr<std::atomic<int>> running_ = std::make_shared<std::atomic<int>>(0);
};

}  // namespace

TEST_F(OsTaskRunTest, ServesUntilAskedToLeave) {
    Start(std::array{Describe("looping", Echo(), 512, EnterLoop), Describe("echo", Echo())});
    ASSERT_TRUE(Serves("looping"));
    EXPECT_EQ(Ask("tester", "looping", "x").data, "x");
    EXPECT_EQ(g_loopResult, 99U);
    OsProcRequestDetach();
    EXPECT_EQ(Result(), 0U);
    EXPECT_EQ(g_loopResult, 0U);
    EXPECT_EQ(OsProcAttach("tester"), 0U);  // it has left the bus
}

TEST_F(OsTaskRunTest, AHandlerMayAskToLeave) {
    Start(std::array{Describe("echo", Echo()), Describe("quit", Quit())});
    ASSERT_TRUE(Serves("echo"));
    support::Post("tester", "quit");
    EXPECT_EQ(Result(), 0U);
}

TEST_F(OsTaskRunTest, EndsWhenAllTasksHaveEnded) {
    Start(std::array{Describe("first", Echo(), 1, ReturnAtOnce), Describe("second", Echo(), 1, ReturnAtOnce)});
    EXPECT_EQ(Result(), 0U);
    EXPECT_EQ(OsProcAttach("tester"), 0U);
}

TEST_F(OsTaskRunTest, GoesOnWhileOneTaskLives) {
    Start(std::array{Describe("ended", Echo(), 1, ReturnAtOnce), Describe("echo", Echo())});
    ASSERT_TRUE(Serves("echo"));
    EXPECT_EQ(Ask("tester", "echo", "x").data, "x");
}

TEST_F(OsTaskRunTest, QueuesTakeMessagesBeforeTheLoopRuns) {
    const support::Inbox inbox;
    Start(std::array{Describe("late", inbox.Keep(), 8, EnterLoopLater), Describe("echo", Echo())});
    ASSERT_TRUE(Serves("echo"));
    for (uint32_t id = 1; id <= 3; ++id) {
        support::Post("tester", "late", id);
    }
    EXPECT_EQ(Ask("tester", "echo", "x").data, "x");
    EXPECT_EQ(inbox.Count(), 0U);
    g_mayLoop = true;
    EXPECT_TRUE(inbox.Await(3));
    EXPECT_EQ(inbox.Ids(), (std::vector<uint32_t>{1, 2, 3}));
}

TEST_F(OsTaskRunTest, TasksMayBeAddedWhileItRuns) {
    Start(std::array{Describe("echo", Echo())});
    ASSERT_TRUE(Serves("echo"));
    support::AddTask("added", Echo());
    EXPECT_EQ(Ask("tester", "added", "x").data, "x");
    OsProcRequestDetach();
    EXPECT_EQ(Result(), 0U);
}

TEST_F(OsTaskRunTest, BadArgumentsAreRefusedAndLeaveTheProcessDetached) {
    const std::array tasks{Describe("echo", Echo()), Describe("other", Echo())};
    EXPECT_EQ(OsTaskRun(nullptr, tasks.data(), 2), 0x80020002U);
    EXPECT_EQ(OsTaskRun("", tasks.data(), 2), 0x80020002U);
    EXPECT_EQ(OsTaskRun("1234567890123456", tasks.data(), 2), 0x80020002U);
    EXPECT_EQ(OsTaskRun("tester", nullptr, 2), 0x80020002U);
    EXPECT_EQ(OsTaskRun("tester", tasks.data(), 0), 0x80020002U);
    std::array bad = tasks;
    bad[1].queueDepth = 0;
    EXPECT_EQ(OsTaskRun("tester", bad.data(), 2), 0x80020002U);
    bad[1] = tasks[0];
    EXPECT_EQ(OsTaskRun("tester", bad.data(), 2), 0x80020006U);
    EXPECT_EQ(OsProcAttach("tester"), 0U);
}

TEST_F(OsTaskRunTest, AttachedProcessAndTakenNameAreRefused) {
    const std::array tasks{Describe("echo", Echo())};
    ASSERT_EQ(OsProcAttach("tester"), 0U);
    EXPECT_EQ(OsTaskRun("tester", tasks.data(), 1), 0x80020005U);
    const Peer peer("peer");
    OsProcDetach();
    EXPECT_EQ(OsTaskRun("peer", tasks.data(), 1), 0x80020006U);
}

TEST_F(OsTaskRunTest, APeerRunsUntilItsHandlerAsksToLeave) {
    ASSERT_EQ(OsProcAttach("tester"), 0U);
    Peer peer("peer");
    EXPECT_FALSE(peer.EndedWell());
    support::Post("peer", "leave");
    EXPECT_TRUE(WaitFor([&peer] { return peer.EndedWell(); }));
}
