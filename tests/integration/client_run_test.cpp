// Runs in the background: whose result is whose, and what becomes of a run that nobody waits for.
#include "ominspect/client/run.h"

#include <future>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "client_fixture.h"

namespace support {
namespace {

class ClientRun : public Client {
protected:
    Child StartLosingServer(int requests) {
        const auto starts = TheSession().ServerStarts();
        Child server({LOSING_SERVER_PROGRAM, std::to_string(requests)});
        EXPECT_TRUE(Eventually([this] {
            const auto state = TheSession().State("x", seconds(1));
            return !state && state.Failure().code == ErrorCode::kRefused;
        }));
        EXPECT_TRUE(Eventually([this, starts] { return TheSession().ServerStarts() > starts; }));
        return server;
    }

    // Another client's run of an item, once the server has begun it.
    Child StartOtherRun(const std::string& item) {
        Child other({OMINSPECTCTL_PROGRAM, "run", item}, {"XDG_STATE_HOME=" + folder_.Path().string()});
        EXPECT_TRUE(Eventually([&] { return Saw(item + " running"); })) << other.Output();
        return other;
    }

    // A run of the item whose answer nobody waits for, once the owner has given it.
    void LeaveARun(const std::string& item) {
        auto run = TheSession().Start({item, ""}, kEnough);
        ASSERT_TRUE(run && run->Next(kEnough));
    }

    Result<RunOutcome> RunIt(const Request& request, const RunOptions& options = {}, const Limit& limit = kEnough) {
        return RunItem(TheSession(), request, options, limit);
    }
};

TEST_F(ClientRun, GivesEachRecordAndThenTheLast) {
    const Child server = StartServer();
    const Child owner = StartOwner({"later:1000", "ok"});
    auto run = TheSession().Start({"later", ""}, kEnough);
    ASSERT_TRUE(run);
    std::vector<std::string> before;
    const auto last = run->Await(kEnough, [&](const ItemResult& result) { before.push_back(result.status); });
    ASSERT_TRUE(last);
    EXPECT_EQ(before, std::vector<std::string>{"running"});
    EXPECT_EQ(last->status + "/" + last->text, "fail/timeout");
    EXPECT_EQ(run->Origin(), RunOrigin::kOwn);

    auto ok = TheSession().Start({"ok", ""}, kEnough);
    ASSERT_TRUE(ok);
    EXPECT_EQ(ok->Next(kEnough)->status, "success");
}

TEST_F(ClientRun, AStopGetsOneMessageAlsoWhenTheOwnerSaysRunning) {
    const Child server = StartServer();
    const Child owner = StartOwner({"later"});
    auto stop = TheSession().Start({"later", "stop"}, kEnough);
    ASSERT_TRUE(stop);
    const auto answer = stop->Await(kEnough);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, "running");
    EXPECT_EQ(TheSession().Stop("later", kEnough)->status, "running");
    EXPECT_EQ(RunIt({"later", "stop"})->result.status, "running");
    EXPECT_EQ(TheSession().Stop("", kEnough).Failure().code, ErrorCode::kInvalidArgument);
}

TEST_F(ClientRun, ADoneGetsOneMessageWithoutAStatus) {
    const Child server = StartServer();
    const Child owner = StartOwner({"later"});
    LeaveARun("later");
    const auto done = RunIt({"later", "done"});
    ASSERT_TRUE(done);
    EXPECT_EQ(done->result.status + "/" + done->result.text, "/done");
    EXPECT_FALSE(done->isOther);
}

TEST_F(ClientRun, AStopIsSentWhileARunIsWaitedForAndEachGetsItsOwnAnswer) {
    const Child server = StartServer();
    const Child owner = StartOwner({"until"});
    auto run = TheSession().Start({"until", ""}, kEnough);
    ASSERT_TRUE(run);
    EXPECT_EQ(run->Next(kEnough)->status, "running");
    EXPECT_EQ(TheSession().Stop("until", kEnough)->text, "answered by owner1");
    EXPECT_EQ(run->Next(kEnough)->text, "stopped");
}

TEST_F(ClientRun, ALostRequestCostsItsOwnTimeLimitOnly) {
    constexpr int kLost = 20;
    const Child server = StartLosingServer(kLost);
    for (int i = 0; i < kLost; ++i) {
        auto lost = TheSession().Start({"item", ""}, kEnough);
        ASSERT_TRUE(lost) << i;
        EXPECT_EQ(lost->Next(milliseconds(5)).Failure().code, ErrorCode::kTimeLimit);
    }
    auto run = TheSession().Start({"item", ""}, kEnough);
    ASSERT_TRUE(run);
    EXPECT_EQ(run->Next(kEnough)->text, "21");
}

TEST_F(ClientRun, ALostRunIsSaidNotToHaveBegun) {
    const Child server = StartLosingServer(2);
    const auto lost = RunIt({"item", ""}, {}, milliseconds(50));
    EXPECT_EQ(lost.Failure().code, ErrorCode::kTimeLimit);
    EXPECT_EQ(lost.Failure().text, "the time limit is over; the server has not begun the run");
    const auto left =
        RunIt({"item", ""}, {.join = false, .leaveRunning = true, .onOther = {}, .onRunning = {}}, milliseconds(50));
    EXPECT_EQ(left.Failure().text, "the time limit is over; the server may begin the run yet");
    EXPECT_EQ(RunIt({"item", ""}, {.join = true, .leaveRunning = false, .onOther = {}, .onRunning = {}})->result.text,
              "3");
}

TEST_F(ClientRun, OneItemCanBeWaitedForSixteenTimes) {
    const Child server = StartServer();
    const Child owner = StartOwner({"until"});
    std::vector<BackgroundRun> runs;
    for (int i = 0; i < 16; ++i) {
        auto run = TheSession().Start({"until", ""}, kEnough);
        ASSERT_TRUE(run) << i;
        runs.push_back(std::move(*run));
    }
    EXPECT_EQ(TheSession().Start({"until", ""}, kEnough).Failure().code, ErrorCode::kInvalidArgument);
    for (BackgroundRun& run : runs) {
        EXPECT_EQ(run.Next(kEnough)->status, "running");
    }
    runs.pop_back();
    runs.pop_back();
    EXPECT_TRUE(TheSession().Stop("until", kEnough));
    for (BackgroundRun& run : runs) {
        EXPECT_EQ(run.Next(kEnough)->text, "stopped");
    }
}

TEST_F(ClientRun, AnAtOnceItemIsRunInTheBackgroundAndHoldsUpNobody) {
    const Child server = StartServer();
    const Child owner = StartOwner({"ok", "never"});
    const Child other = StartOwner({"ok2"}, "owner2");
    EXPECT_EQ(RunIt({"ok", ""})->result.status, "success");

    auto slow = TheSession().Start({"never", ""}, kEnough);
    ASSERT_TRUE(slow);
    ASSERT_TRUE(Eventually([this] { return Saw("never running"); }));
    EXPECT_EQ(RunIt({"ok2", ""})->result.status, "success");
    EXPECT_EQ(*TheSession().State("ok2", kEnough), ItemState::kNotIdle);
    const Outcome client = support::Run({OMINSPECTCTL_PROGRAM, "state", "ok2"});
    EXPECT_EQ(client.exitCode, 0) << client.output;
    EXPECT_EQ(slow->Next(milliseconds(1)).Failure().code, ErrorCode::kTimeLimit) << "the owner answered";
}

TEST_F(ClientRun, ACancelledRunIsStoppedAndTheNextOneGetsItsOwnAnswer) {
    const Child server = StartServer();
    const Child owner = StartOwner({"until:3000"});
    std::stop_source source;
    RunOptions options;
    options.onRunning = [&source](const ItemResult&) { source.request_stop(); };
    const auto cancelled = RunIt({"until", ""}, options, {kEnough, source.get_token()});
    EXPECT_EQ(cancelled.Failure().code, ErrorCode::kCancelled);
    EXPECT_EQ(cancelled.Failure().text, "cancelled; the item was stopped");
    const auto next = RunIt({"until", ""});
    ASSERT_TRUE(next);
    EXPECT_EQ(next->result.text, "timeout");
    EXPECT_FALSE(next->isOther);
}

TEST_F(ClientRun, ARunCanBeLeftRunningAndIsThenWaitedForByTheNext) {
    const Child server = StartServer();
    const Child owner = StartOwner({"later:2000"});
    std::stop_source source;
    RunOptions leave;
    leave.leaveRunning = true;
    leave.onRunning = [&source](const ItemResult&) { source.request_stop(); };
    const auto left = RunIt({"later", ""}, leave, {kEnough, source.get_token()});
    EXPECT_EQ(left.Failure().text, "cancelled; the item runs on");
    int others = 0;
    RunOptions options;
    options.onOther = [&others] { ++others; };
    const auto next = RunIt({"later", ""}, options);
    ASSERT_TRUE(next);
    EXPECT_FALSE(next->isOther);
    EXPECT_EQ(others, 1);
}

TEST_F(ClientRun, AnotherRunIsJoinedOnlyWhenThatIsWanted) {
    const Child server = StartServer();
    const Child owner = StartOwner({"later:2000"});
    LeaveARun("later");
    std::vector<std::string> told;
    const auto joined = RunIt({"later", ""}, {.join = true,
                                              .leaveRunning = false,
                                              .onOther = [&told] { told.emplace_back("other"); },
                                              .onRunning = [&told](const ItemResult& r) { told.push_back(r.status); }});
    ASSERT_TRUE(joined);
    EXPECT_TRUE(joined->isOther);
    EXPECT_EQ(joined->result.text, "timeout");
    EXPECT_EQ(told, (std::vector<std::string>{"other", "running"}));
}

TEST_F(ClientRun, ACancelledRunDoesNotStopTheRunOfAnother) {
    const Child server = StartServer();
    const Child owner = StartOwner({"until"});
    Child other = StartOtherRun("until");
    std::stop_source source;
    RunOptions options;
    options.onOther = [&source] { source.request_stop(); };
    const auto cancelled = RunIt({"until", ""}, options, {kEnough, source.get_token()});
    EXPECT_EQ(cancelled.Failure().text, "cancelled; another run of the item goes on");
    EXPECT_FALSE(other.Wait(seconds(0)));
    EXPECT_TRUE(TheSession().Stop("until", kEnough));
    EXPECT_EQ(other.Wait(), 1) << other.Output();
}

TEST_F(ClientRun, AnItemThatDoesNotStopIsSaidToRun) {
    const Child server = StartServer();
    const Child owner = StartOwner({"later", "never"});
    const CancelWhen cancel([this] { return Saw("later running"); });
    const auto later = RunIt({"later", ""}, {}, {kEnough, cancel.Token()});
    EXPECT_EQ(later.Failure().text, "cancelled; the item was asked to stop, but still runs");
    const auto never = RunIt({"never", ""}, {}, milliseconds(100));
    EXPECT_EQ(never.Failure().text, "the time limit is over; the item could not be stopped: its owner does not answer");
}

TEST_F(ClientRun, TheResultOfARunThatTheServerDoesNotLetGoIsSaidToBeAnothers) {
    const Child server = StartServer();
    const Child owner = StartOwner({"later:1000"});
    EXPECT_TRUE(TheSession().Run({"later", ""}, kEnough)->isPending);  // which the server counts for ever
    ASSERT_TRUE(Eventually([this] {
        const auto held = TheSession().Run({"later", ""}, kEnough);
        return held && held->result.text == "timeout";
    }));
    int others = 0;
    RunOptions options;
    options.onOther = [&others] { ++others; };
    const auto held = RunIt({"later", ""}, options);
    ASSERT_TRUE(held);
    EXPECT_TRUE(held->isOther);
    EXPECT_EQ(held->result.text, "timeout");
    EXPECT_EQ(others, 1);
}

TEST_F(ClientRun, AnUnknownItemIsNobodyElsesRun) {
    const Child server = StartServer();
    const auto unknown = RunIt({"nosuch", ""});
    ASSERT_TRUE(unknown);
    EXPECT_TRUE(IsUnknownItem(unknown->result));
    EXPECT_FALSE(unknown->isOther);
    EXPECT_EQ(RunIt({"", ""}).Failure().code, ErrorCode::kInvalidArgument);
}

TEST_F(ClientRun, AForgottenRunsResultIsNotTakenForALaterRuns) {
    const Child server = StartServer();
    const Child owner = StartOwner({"later:2000"});
    LeaveARun("later");
    {
        auto joins = TheSession().Start({"later", ""}, kEnough);
        ASSERT_TRUE(joins);
        EXPECT_EQ(joins->Next(kEnough)->status, "running");
        EXPECT_EQ(joins->Origin(), RunOrigin::kJoined);
        EXPECT_EQ(joins->Next(kEnough)->text, "timeout");
    }
    const auto fresh = RunIt({"later", ""});
    ASSERT_TRUE(fresh);
    EXPECT_FALSE(fresh->isOther);
}

TEST_F(ClientRun, ASlowEventFunctionHoldsUpNoResult) {
    std::promise<void> done;
    slow_ = [&done] { done.get_future().wait(); };
    const Child server = StartServer();
    const Child owner = StartOwner({"ok"});
    auto run = TheSession().Start({"ok", ""}, kEnough);
    ASSERT_TRUE(run);
    EXPECT_EQ(run->Next(kEnough)->status, "success");
    done.set_value();
    EXPECT_TRUE(Eventually([this] { return Saw("ok success"); }));
}

TEST_F(ClientRun, AServerThatDiesOrRestartsEndsTheWait) {
    std::optional<Child> server(StartServer());
    const Child owner = StartOwner({"later"});
    auto run = TheSession().Start({"later", ""}, kEnough);
    ASSERT_TRUE(run && run->Next(kEnough));
    server->Kill();
    EXPECT_EQ(run->Next(kEnough).Failure().code, ErrorCode::kServerAbsent);
    server.emplace(StartServer());
    const auto after = run->Next(kEnough);
    EXPECT_EQ(after.Failure().code, ErrorCode::kServerAbsent);
    EXPECT_EQ(after.Failure().text, "server absent: it restarted and forgot the run");
}

}  // namespace
}  // namespace support
