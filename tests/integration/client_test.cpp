// The requesters' library against a real server: time limits, cancellation, and what it says when something is missing.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ominspect/client/group.h"
#include "ominspect/client/session.h"
#include "support/child.h"
#include "support/eventually.h"
#include "support/private_bus.h"
#include "support/temp_folder.h"

using namespace ominspect::client;
using std::chrono::milliseconds;
using std::chrono::seconds;
using support::Child;
using support::Eventually;
using support::PrivateBus;
using support::TempFolder;

namespace {

constexpr seconds kEnough{60};

// Cancels as soon as a condition holds.
class CancelWhen {
public:
    explicit CancelWhen(std::function<bool()> condition)
        : thread_([this, condition = std::move(condition)] {
              EXPECT_TRUE(Eventually(condition));
              source_.request_stop();
          }) {}
    std::stop_token Token() const { return source_.get_token(); }

private:
    std::stop_source source_;
    std::jthread thread_;
};

class Client : public testing::Test {
protected:
    Client() : bus_(std::make_unique<PrivateBus>()) {}
    ~Client() override { session_.reset(); }

    // The session, made when it is first asked for.
    Session& TheSession() {
        if (!session_) {
            auto session = Session::Open({.onRun =
                                              [this](const ItemResult& result) {
                                                  if (auto slow = std::exchange(slow_, nullptr)) {
                                                      slow();
                                                  }
                                                  const std::lock_guard lock(mutex_);
                                                  seen_.push_back(result.name + " " + result.status);
                                              },
                                          .onBusy = {},
                                          .onBusLost = {}});
            EXPECT_TRUE(session);
            session_ = std::move(*session);
            EXPECT_FALSE(session_->Subscribe());
        }
        return *session_;
    }

    bool Saw(const std::string& event) {
        const std::lock_guard lock(mutex_);
        return std::find(seen_.begin(), seen_.end(), event) != seen_.end();
    }

    Child StartServer() {
        Child server({OMINSPECT_PROGRAM}, {"KIVO_LOG_DIR=" + folder_.Path().string()});
        EXPECT_TRUE(Eventually([this] { return static_cast<bool>(TheSession().State("x", seconds(1))); }));
        return server;
    }

    static Child StartOwner(std::vector<std::string> items) {
        items.insert(items.begin(), {RAW_OWNER_PROGRAM, "owner1"});
        Child owner(items);
        EXPECT_TRUE(Eventually([&] { return owner.Output().find("registered") != std::string::npos; }));
        return owner;
    }

    TempFolder folder_;
    std::unique_ptr<PrivateBus> bus_;
    std::function<void()> slow_;  // what the first event has to wait for

private:
    std::mutex mutex_;  // guards `seen_`
    std::vector<std::string> seen_;
    std::unique_ptr<Session> session_;
};

TEST_F(Client, SaysThatTheServerIsAbsent) {
    Session& session = TheSession();
    EXPECT_EQ(session.Run({"x", ""}, kEnough).Failure().code, ErrorCode::kServerAbsent);
    EXPECT_EQ(session.Start({"x", ""}, kEnough).Failure().code, ErrorCode::kServerAbsent);
    EXPECT_EQ(session.StartGroup(std::vector<Request>{{"x", ""}}, kEnough).Failure().code, ErrorCode::kServerAbsent);
    EXPECT_EQ(session.StopTask(17, kEnough).Failure().code, ErrorCode::kServerAbsent);
    EXPECT_EQ(session.Reset("x", kEnough)->code, ErrorCode::kServerAbsent);
    EXPECT_EQ(session.State("x", kEnough).Failure().code, ErrorCode::kServerAbsent);
    EXPECT_EQ(session.List(kEnough).Failure().code, ErrorCode::kServerAbsent);
}

TEST_F(Client, RefusesWhatCannotBeSent) {
    const Child server = StartServer();
    const std::string longName(32, 'n');
    Session& session = TheSession();
    EXPECT_EQ(session.Run({longName, ""}, kEnough).Failure().code, ErrorCode::kInvalidArgument);
    EXPECT_EQ(session.Start({longName, ""}, kEnough).Failure().code, ErrorCode::kInvalidArgument);
    EXPECT_EQ(session.Reset("", kEnough)->code, ErrorCode::kInvalidArgument);
    EXPECT_EQ(RunGroup(session, {}, {}, kEnough)->text, "the group is empty");
    std::vector<Request> requests(40, {"x", ""});
    requests[39].item = longName;
    bool started = false;
    GroupOptions options;
    options.onStart = [&](auto, auto, auto) { started = true; };
    EXPECT_EQ(RunGroup(session, requests, options, kEnough)->code, ErrorCode::kInvalidArgument);
    EXPECT_FALSE(started);
}

TEST_F(Client, ARunInTheBackgroundGivesEachRecordAndThenTheLast) {
    const Child server = StartServer();
    const Child owner = StartOwner({"later:1000", "ok"});
    auto run = TheSession().Start({"later", ""}, kEnough);
    ASSERT_TRUE(run);
    EXPECT_EQ(TheSession().Start({"later", ""}, kEnough).Failure().code, ErrorCode::kInvalidArgument);
    std::vector<std::string> before;
    const auto last = run->Await(kEnough, [&](const ItemResult& result) { before.push_back(result.status); });
    ASSERT_TRUE(last);
    EXPECT_EQ(before, std::vector<std::string>{"running"});
    EXPECT_EQ(last->status + "/" + last->text, "fail/timeout");

    auto ok = TheSession().Start({"ok", ""}, kEnough);
    ASSERT_TRUE(ok);
    EXPECT_EQ(ok->Next(kEnough)->status, "success");
}

TEST_F(Client, AForgottenRunCanBeStartedAgain) {
    const Child server = StartServer();
    const Child owner = StartOwner({"later:1000"});
    { ASSERT_TRUE(TheSession().Start({"later", ""}, kEnough)); }
    auto run = TheSession().Start({"later", ""}, kEnough);
    ASSERT_TRUE(run);
    EXPECT_EQ(run->Await(kEnough)->text, "timeout");
}

TEST_F(Client, EveryWaitHasATimeLimit) {
    const Child server = StartServer();
    const Child owner = StartOwner({"later", "never"});
    auto run = TheSession().Start({"later", ""}, kEnough);
    ASSERT_TRUE(run);
    ASSERT_TRUE(run->Next(kEnough));
    EXPECT_EQ(run->Next(milliseconds(10)).Failure().code, ErrorCode::kTimeLimit);
    EXPECT_EQ(TheSession().Run({"never", ""}, milliseconds(100)).Failure().code, ErrorCode::kTimeLimit);
    EXPECT_EQ(TheSession().State("x", milliseconds(0)).Failure().code, ErrorCode::kTimeLimit);
    EXPECT_EQ(TheSession().State("x", milliseconds(-5)).Failure().code, ErrorCode::kTimeLimit);
}

TEST_F(Client, EveryWaitCanBeCancelled) {
    const Child server = StartServer();
    const Child owner = StartOwner({"later", "never"});
    auto run = TheSession().Start({"later", ""}, kEnough);
    ASSERT_TRUE(run);
    ASSERT_TRUE(run->Next(kEnough));
    std::stop_source source;
    source.request_stop();
    EXPECT_EQ(run->Next({kEnough, source.get_token()}).Failure().code, ErrorCode::kCancelled);
    EXPECT_EQ(TheSession().State("x", {kEnough, source.get_token()}).Failure().code, ErrorCode::kCancelled);
    EXPECT_EQ(TheSession().Start({"x", ""}, {kEnough, source.get_token()}).Failure().code, ErrorCode::kCancelled);

    // Half-way: the owner has the request and does not answer.
    const CancelWhen cancel([this] { return Saw("never running"); });
    EXPECT_EQ(TheSession().Run({"never", ""}, {kEnough, cancel.Token()}).Failure().code, ErrorCode::kCancelled);
}

// A thread that has ended keeps its stack, which is a mapping of the process's, until it is joined.
TEST_F(Client, CancelledCallsAreJoinedOnceTheyHaveEnded) {
    const Child server = StartServer();
    const Child owner = StartOwner({"never"});
    const CancelWhen blocked([this] { return Saw("never running"); });
    EXPECT_EQ(TheSession().Run({"never", ""}, {kEnough, blocked.Token()}).Failure().code, ErrorCode::kCancelled);
    const auto mappings = [] {
        std::ifstream file("/proc/self/maps");
        return std::count(std::istreambuf_iterator<char>(file), {}, '\n');
    };
    int cancelled = 0;
    // The server is held by that run: the calls end by their limit.
    const auto cancelOne = [&] {
        std::stop_source source;
        std::jthread cancel([&source] { source.request_stop(); });
        const auto state = TheSession().State("x", {milliseconds(50), source.get_token()});
        if (!state && state.Failure().code == ErrorCode::kCancelled) {
            ++cancelled;
        }
    };
    cancelOne();
    const auto before = mappings();
    for (int i = 0; i < 200; ++i) {
        cancelOne();
    }
    EXPECT_GT(cancelled, 100);
    EXPECT_TRUE(Eventually([&] {
        cancelOne();
        return mappings() <= before + 100;  // the allocator's own for each thread included
    })) << mappings();
}

TEST_F(Client, AForgottenRunsResultIsNotTakenForALaterRuns) {
    const Child server = StartServer();
    const Child owner = StartOwner({"later:3000"});
    {
        auto run = TheSession().Start({"later", ""}, kEnough);
        ASSERT_TRUE(run && run->Next(kEnough));
    }
    {
        auto again = TheSession().Start({"later", ""}, kEnough);  // takes the run up
        ASSERT_TRUE(again);
        EXPECT_EQ(again->Next(kEnough)->text, "timeout");
    }
    auto fresh = TheSession().Start({"later", ""}, kEnough);
    ASSERT_TRUE(fresh);
    EXPECT_EQ(fresh->Next(kEnough)->status, "running");
    EXPECT_EQ(fresh->Next(kEnough)->text, "timeout");
}

TEST_F(Client, ASlowEventFunctionHoldsUpNoResult) {
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

TEST_F(Client, AServerThatDiesOrRestartsEndsTheWait) {
    std::optional<Child> server(StartServer());
    const Child owner = StartOwner({"later"});
    auto run = TheSession().Start({"later", ""}, kEnough);
    ASSERT_TRUE(run && run->Next(kEnough));
    server->Kill();
    EXPECT_EQ(run->Next(kEnough).Failure().code, ErrorCode::kServerAbsent);
    server.emplace(StartServer());
    const auto after = run->Next(kEnough);
    EXPECT_EQ(after.Failure().code, ErrorCode::kServerAbsent);
    EXPECT_EQ(after.Failure().text, "the server restarted and forgot the run");
}

TEST_F(Client, ALostBusEndsTheWait) {
    const Child server = StartServer();
    const Child owner = StartOwner({"later"});
    auto run = TheSession().Start({"later", ""}, kEnough);
    ASSERT_TRUE(run && run->Next(kEnough));
    bus_.reset();
    EXPECT_EQ(run->Next(kEnough).Failure().code, ErrorCode::kBusUnreachable);
    EXPECT_EQ(TheSession().State("x", kEnough).Failure().code, ErrorCode::kBusUnreachable);
}

TEST_F(Client, AGroupCallsBackWithItsRecordAndDoesNotLinger) {
    const Child server = StartServer();
    const Child owner = StartOwner({"ok", "later:1000"});
    std::uint32_t taskId = 0;
    std::optional<GroupRecord> record;
    GroupOptions options;
    options.onStart = [&](std::uint32_t id, std::size_t first, std::size_t count) {
        taskId = id;
        EXPECT_EQ(first, 0U);
        EXPECT_EQ(count, 2U);
    };
    options.onRecord = [&](const GroupRecord& arrived) { record = arrived; };
    EXPECT_FALSE(RunGroup(TheSession(), std::vector<Request>{{"ok", ""}, {"later", ""}}, options, kEnough));
    ASSERT_TRUE(record);
    EXPECT_EQ(record->taskId, taskId);
    ASSERT_EQ(record->items.size(), 2U);
    EXPECT_EQ(record->items[0].result.status, "success");
    EXPECT_LE(*record->items[0].start, *record->items[0].end);
    EXPECT_EQ(record->items[1].result.text, "timeout");
    EXPECT_FALSE(*TheSession().StopTask(taskId, kEnough)) << "the task lingers";
    EXPECT_EQ(*TheSession().State("ok", kEnough), ItemState::kIdleOrUnknown);
}

TEST_F(Client, ACancelledGroupIsStoppedInTheServerAndStillTellsWhatItCameTo) {
    const Child server = StartServer();
    const Child owner = StartOwner({"until", "ok"});
    std::optional<GroupRecord> record;
    GroupOptions options;
    options.onRecord = [&](const GroupRecord& arrived) { record = arrived; };
    const CancelWhen cancel([this] { return Saw("until running"); });
    const auto error =
        RunGroup(TheSession(), std::vector<Request>{{"ok", ""}, {"until", ""}}, options, {kEnough, cancel.Token()});
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, ErrorCode::kCancelled);
    EXPECT_EQ(error->text, "cancelled; the group was stopped");
    ASSERT_TRUE(record);
    EXPECT_EQ(record->items[0].result.status, "success");
    EXPECT_EQ(record->items[1].result.text, "stopped");
}

TEST_F(Client, AGroupThatIsCancelledAtItsRecordDoesNotLingerEither) {
    const Child server = StartServer();
    const Child owner = StartOwner({"ok"});
    std::stop_source source;
    std::uint32_t taskId = 0;
    GroupOptions options;
    options.onRecord = [&](const GroupRecord& record) {
        taskId = record.taskId;
        source.request_stop();
    };
    EXPECT_FALSE(RunGroup(TheSession(), std::vector<Request>{{"ok", ""}}, options, {kEnough, source.get_token()}));
    ASSERT_NE(taskId, 0U);
    EXPECT_FALSE(*TheSession().StopTask(taskId, kEnough)) << "the task lingers";
}

TEST_F(Client, AStoppedGroupWhoseOwnerDoesNotStopIsSaidToLinger) {
    const Child server = StartServer();
    const Child owner = StartOwner({"later"});
    const auto error = RunGroup(TheSession(), std::vector<Request>{{"later", ""}}, {}, {seconds(4), std::stop_token()});
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, ErrorCode::kTimeLimit);
    EXPECT_TRUE(error->text.ends_with("; the group was asked to stop, but items of it still run")) << error->text;
    const auto refused = RunGroup(TheSession(), std::vector<Request>{{"x", ""}}, {}, kEnough);
    EXPECT_EQ(refused->code, ErrorCode::kGroupBusy);
}

TEST_F(Client, TheListHoldsTheBuiltInItems) {
    const Child server = StartServer();
    const auto list = TheSession().List(kEnough);
    ASSERT_TRUE(list);
    EXPECT_EQ(list->total, 25U);
    ASSERT_EQ(list->items.size(), 25U);
    EXPECT_EQ(list->items[0].name, "bsp_mainboard_ft");
    EXPECT_EQ(list->items[0].level, "error");
    EXPECT_TRUE(list->items[0].isSync);
    EXPECT_EQ(list->items[24].name, "conf_ldapserver_ft");
    EXPECT_FALSE(list->items[24].isSync);
}

TEST_F(Client, ASecondSessionOfTheProcessIsRefused) {
    TheSession();
    EXPECT_EQ(Session::Open().Failure().code, ErrorCode::kAlreadyOpen);
    // The first one still has its place.
    EXPECT_EQ(TheSession().State("x", kEnough).Failure().code, ErrorCode::kServerAbsent);
}

}  // namespace
