// A session against a real server: time limits, cancellation, and what it says when something is missing.
#include <algorithm>
#include <fstream>
#include <iterator>
#include <new>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include "client_fixture.h"
#include "ominspect/client/group.h"

namespace support {
namespace {

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

// A function that finds no memory throws; what it was told counts as lost.
TEST_F(Client, AnEventWhoseFunctionThrowsIsCountedAsLost) {
    const Child server = StartServer();
    const Child owner = StartOwner({"ok"});
    EXPECT_EQ(TheSession().LostEvents(), 0U);
    slow_ = [] { throw std::bad_alloc(); };
    ASSERT_TRUE(TheSession().Run({"ok", ""}, kEnough));
    EXPECT_TRUE(Eventually([this] { return Saw("ok success"); }));  // the next one
    EXPECT_EQ(TheSession().LostEvents(), 1U);
    EXPECT_FALSE(Saw("ok running"));
}

TEST_F(Client, ALostBusEndsTheWait) {
    const Child server = StartServer();
    const Child owner = StartOwner({"later"});
    auto run = TheSession().Start({"later", ""}, kEnough);
    ASSERT_TRUE(run && run->Next(kEnough));
    bus_.reset();
    EXPECT_EQ(TheSession().State("x", kEnough).Failure().code, ErrorCode::kBusUnreachable);
    // Told at once, and not only by the next question whether the server is there, two seconds later.
    EXPECT_EQ(run->Next(milliseconds(1900)).Failure().code, ErrorCode::kBusUnreachable);
    EXPECT_TRUE(Eventually([this] { return Saw("bus lost"); }));
}

TEST_F(Client, EventsTellWhatTheServerDoes) {
    const Child server = StartServer();
    const Child owner = StartOwner({"ok"});
    EXPECT_FALSE(Saw("busy"));
    ASSERT_TRUE(TheSession().Run({"ok", ""}, kEnough));
    EXPECT_TRUE(Eventually([this] { return Saw("busy") && Saw("ok running") && Saw("ok success") && Saw("idle"); }));
    CloseSession();
    EXPECT_FALSE(Saw("bus lost"));
}

// Another container may have a process with the same id.
TEST_F(Client, TakesAnotherNameWhenItsOwnIsTaken) {
    const std::string name = "ic-" + std::to_string(getpid());
    const Child server = StartServer();
    CloseSession();
    std::vector<Child> others;
    for (const char* suffix : {"", "-1", "-2", "-3", "-4", "-5", "-6"}) {
        others.push_back(StartOwner({"ok"}, name + suffix));
    }
    EXPECT_EQ(Session::Open({}, name).Failure().text,
              "another process is \"" + name + "\" on the bus at " + bus_->Address());
    EXPECT_TRUE(Session::Open());
    others.push_back(StartOwner({"ok"}, name + "-7"));
    EXPECT_EQ(Session::Open().Failure().code, ErrorCode::kAlreadyOpen);
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
}  // namespace support
