// Groups as people run them: ominspectctl against a running server and real owners.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>

#include "programs.h"
#include "support/bare_terminal.h"

namespace support {
namespace {

class GroupCommand : public Programs {
protected:
    static Outcome Group(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "group");
        return Ctl(arguments);
    }

    static Child StartGroup(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "group");
        return StartCtl(arguments);
    }

    static bool IsFree() { return Send(7, "always_ok").data == std::vector<unsigned char>{1, 0, 0, 0}; }
};

TEST_F(GroupCommand, AMixedGroupShowsEveryItemAsItBeginsAndEnds) {
    const Child server = StartServer(true);
    const Child owner = StartShippedOwner();
    const Child raw = StartOwner("owner1", {"never"});
    Child mortal = StartOwner("owner2", {"later:2000"});
    Child group = StartGroup({"always_ok", "later_ok", "never", "later", "not_there", "always_critical"});
    EXPECT_TRUE(Eventually([&] { return Holds(group.Output(), "always_critical  fail"); })) << group.Output();
    mortal.Kill();
    EXPECT_EQ(group.Wait(), 1) << group.Output();
    const std::string output = group.Output();
    for (const char* line : {": 6 items\n", "always_ok        running           -  \n", " ms  fine\n",
                             "later_ok         running", " ms  late but fine\n", "never            fail ",
                             " ms  run err\n", "later            running", " ms  timeout\n", "not_there        fail ",
                             "no support (item unknown: no process has registered \"not_there\" with the server)\n",
                             " ms  it is broken\n", "6 of 6 done\n"}) {
        EXPECT_TRUE(Holds(output, line)) << line << "\n" << output;
    }
    EXPECT_TRUE(EventuallyAtRest(server));
    EXPECT_TRUE(IsFree());
}

TEST_F(GroupCommand, AMalformedResultSpoilsNoOther) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"ok", "size_192"});
    const Outcome group = Group({"ok", "size_192"});
    EXPECT_EQ(group.exitCode, 1) << group.output;
    EXPECT_TRUE(Holds(group.output, "ok        success")) << group.output;
    EXPECT_TRUE(Holds(group.output, "size_192  malformed")) << group.output;
    EXPECT_TRUE(EventuallyAtRest(server));
}

// The request waits in the server's queue while a synchronous run holds the server, and is served after the limit.
TEST_F(GroupCommand, AGroupThatStartsAfterItsTimeLimitIsStopped) {
    const Child server = StartServer(true);
    const Child owner = StartOwner("owner1", {"never", "until", "always_ok@ok"});
    Child blocking({OMINSPECTCTL_PROGRAM, "watch"});
    ASSERT_TRUE(Eventually([&] { return Holds(blocking.Output(), "watching"); }));
    Post(0, R"({"name":"never","cmd":""})", "ominspect", "iom_srv_task");
    ASSERT_TRUE(Eventually([&] { return Holds(blocking.Output(), "never"); })) << blocking.Output();
    const Outcome group = Group({"until", "--timeout", "1"});
    EXPECT_EQ(group.exitCode, 4) << group.output;
    EXPECT_TRUE(EventuallyAtRest(server));
    EXPECT_EQ(Group({"always_ok"}).exitCode, 0);
}

TEST_F(GroupCommand, AClosedPipeStopsTheGroup) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"until", "always_ok@ok"});
    const std::string command = std::string(OMINSPECTCTL_PROGRAM) + " group always_ok until | head -n 1";
    EXPECT_TRUE(Holds(support::Run({"/bin/sh", "-c", command}).output, ": 2 items\n"));
    EXPECT_TRUE(EventuallyAtRest(server));
    EXPECT_EQ(Group({"always_ok", "--wait"}).exitCode, 0);
}

TEST_F(GroupCommand, TheEndOfTheTerminalStopsTheGroup) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"until"});
    Child group = StartGroup({"until"});
    ASSERT_TRUE(Eventually([&] { return Holds(group.Output(), "until  running"); })) << group.Output();
    group.Signal(SIGHUP);
    EXPECT_EQ(group.Wait(), 130) << group.Output();
    EXPECT_TRUE(EventuallyAtRest(server));
}

TEST_F(GroupCommand, AGroupThatPassedExitsWithZeroAndLeavesItsItemsIdle) {
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    const Outcome group = Group({"always_ok", "later_ok", "--json"});
    EXPECT_EQ(group.exitCode, 0) << group.output;
    EXPECT_TRUE(group.output.starts_with(R"({"results":[{"item":"always_ok","status":"success","text":"fine",)"));
    EXPECT_TRUE(Holds(group.output, R"({"item":"later_ok","status":"success","text":"late but fine",)"));
    EXPECT_TRUE(Holds(group.output, R"("items":2}]})")) << group.output;
    EXPECT_TRUE(Holds(Ctl({"list"}).output, " s ago: late but fine\n")) << "the results are remembered";
    EXPECT_EQ(std::count(group.output.begin(), group.output.end(), '\n'), 1);
    EXPECT_TRUE(IsFree());
    EXPECT_TRUE(EventuallyAtRest(server));
}

TEST_F(GroupCommand, CtrlCStopsTheGroupInTheServerAndTheOwnersCommand) {
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    Child group = StartGroup({"long_run", "always_ok"});
    const pid_t command = AwaitCommand();
    EXPECT_TRUE(Eventually([&] { return Holds(group.Output(), "always_ok  success"); })) << group.Output();
    group.Signal(SIGINT);
    EXPECT_EQ(group.Wait(), 130) << group.Output();
    EXPECT_TRUE(Holds(group.Output(), "ominspectctl: cancelled; the group was stopped\n")) << group.Output();
    EXPECT_TRUE(Holds(group.Output(), " ms  stopped\n")) << group.Output();
    EXPECT_NE(kill(command, 0), 0) << "the command outlived its group";
    EXPECT_TRUE(EventuallyAtRest(server));
    EXPECT_EQ(Group({"always_ok"}).exitCode, 0);
}

TEST_F(GroupCommand, AStopFromAnotherTerminalEndsTheGroup) {
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    Child group = StartGroup({"long_run"});
    const pid_t command = AwaitCommand();
    const std::string output = group.Output();
    const size_t colon = output.find(':');
    ASSERT_TRUE(output.starts_with("task ") && colon != std::string::npos) << output;
    const std::string taskId = output.substr(5, colon - 5);
    const Outcome stop = support::Run({OMINSPECTCTL_PROGRAM, "stop", taskId});
    EXPECT_EQ(stop.exitCode, 0);
    EXPECT_EQ(stop.output, "task " + taskId + " was asked to stop\n");
    EXPECT_EQ(group.Wait(), 1) << group.Output();
    EXPECT_NE(kill(command, 0), 0) << "the command outlived its group";
    const Outcome again = support::Run({OMINSPECTCTL_PROGRAM, "stop", taskId, "--json"});
    EXPECT_EQ(again.exitCode, 1);
    EXPECT_EQ(again.output, R"({"taskId":)" + taskId + R"(,"known":false})" + "\n");
}

TEST_F(GroupCommand, TheTimeLimitStopsTheGroupAndExitsWithFour) {
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    const Outcome group = Group({"always_ok", "long_run", "--timeout", "4", "--json"});
    EXPECT_EQ(group.exitCode, 4) << group.output;
    EXPECT_TRUE(Holds(group.output, R"("error":{"code":"time-limit")")) << group.output;
    EXPECT_TRUE(Holds(group.output, R"("item":"long_run","status":"fail","text":"stopped")")) << group.output;
    EXPECT_NE(kill(AwaitCommand(), 0), 0) << "the command outlived its group";
    EXPECT_TRUE(EventuallyAtRest(server));
}

TEST_F(GroupCommand, WhileAGroupRunsOthersOfItsNameAreRefusedAndSayIt) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"until", "always_ok@ok"});
    Child running = StartGroup({"until"});
    ASSERT_TRUE(Eventually([&] { return Holds(running.Output(), "until  running"); })) << running.Output();
    std::vector<Child> refused;
    for (int i = 0; i < 20; ++i) {
        refused.push_back(StartGroup({"always_ok"}));
    }
    for (Child& client : refused) {
        EXPECT_EQ(client.Wait(), 3);
        EXPECT_EQ(client.Output(),
                  "ominspectctl: the server runs such a group already (16); --wait waits for its end\n");
    }
    // A group of another name is another matter.
    EXPECT_EQ(Group({"kivo_om_diag_log"}).exitCode, 1);

    Child waiting = StartGroup({"always_ok", "--wait"});
    ASSERT_TRUE(Eventually([&] { return Holds(waiting.Output(), "waiting for its end"); })) << waiting.Output();
    const Outcome tooLate = Group({"always_ok", "--wait", "--timeout", "1"});
    EXPECT_EQ(tooLate.exitCode, 4) << tooLate.output;
    running.Signal(SIGTERM);
    EXPECT_EQ(running.Wait(), 130) << running.Output();
    EXPECT_EQ(waiting.Wait(), 0) << waiting.Output();
    EXPECT_TRUE(EventuallyAtRest(server));
}

TEST_F(GroupCommand, OfTwentyClientsAtOnceOneGroupRunsAtATime) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"always_ok@ok"});
    std::vector<Child> clients;
    for (int i = 0; i < 20; ++i) {
        clients.push_back(StartGroup({"always_ok"}));
    }
    int passed = 0;
    for (Child& client : clients) {
        const auto code = client.Wait();
        if (code == 0) {
            ++passed;
            continue;
        }
        EXPECT_EQ(code, 3);
        EXPECT_TRUE(Holds(client.Output(), "(16); --wait waits for its end")) << client.Output();
    }
    EXPECT_GE(passed, 1);
    EXPECT_LT(passed, 20);
    std::vector<std::string> events;
    EXPECT_TRUE(EventuallyAtRest(server, &events));
    std::erase_if(events, [](const std::string& event) { return !event.starts_with("unknown_group "); });
    ASSERT_EQ(events.size(), 2 * static_cast<size_t>(passed));
    for (size_t i = 0; i < events.size(); ++i) {
        EXPECT_EQ(events[i],
                  i % 2 == 0 ? "unknown_group running/unknown_group" : "unknown_group success/unknown_group");
    }
}

TEST_F(GroupCommand, ClientsThatWaitAllHaveTheirTurn) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"always_ok@ok"});
    std::vector<Child> clients;
    for (int i = 0; i < 5; ++i) {
        clients.push_back(StartGroup({"always_ok", "--wait", "--timeout", "100"}));
    }
    for (Child& client : clients) {
        EXPECT_EQ(client.Wait(std::chrono::seconds(100)), 0) << client.Output();
    }
    EXPECT_TRUE(EventuallyAtRest(server));
    EXPECT_TRUE(IsFree());
}

TEST_F(GroupCommand, MoreThan32ItemsAreRunAsSuccessiveGroups) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"always_ok@ok"});
    const Outcome group = Group(std::vector<std::string>(33, "always_ok"));
    EXPECT_EQ(group.exitCode, 0) << group.output;
    EXPECT_TRUE(Holds(group.output, "ominspectctl: 33 items: 2 groups of at most 32, one after the other\n"));
    EXPECT_TRUE(Holds(group.output, ": 32 items\nITEM ")) << group.output;
    EXPECT_TRUE(Holds(group.output, ": 1 item\n"));
    EXPECT_EQ(CountOf(group.output, "ITEM "), 1U) << group.output;
    EXPECT_TRUE(Holds(group.output, "33 of 33 done\n")) << group.output;
}

// It is said before the server is asked, which is not there.
TEST_F(GroupCommand, SaysHowManyGroupsThereAreUnlessThereIsOne) {
    const Outcome two = Group(std::vector<std::string>(64, "always_ok"));
    EXPECT_TRUE(two.output.starts_with("ominspectctl: 64 items: 2 groups of at most 32, one after the other\n"))
        << two.output;
    const Outcome one = Group(std::vector<std::string>(32, "always_ok"));
    EXPECT_TRUE(one.output.starts_with("ominspectctl: server absent: ")) << one.output;
}

TEST_F(GroupCommand, AllConfiguredItemsCanBeRun) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"conf_sip_ft@ok"});
    const Outcome group = Group({"--all"});
    EXPECT_EQ(group.exitCode, 1) << group.output;
    EXPECT_TRUE(Holds(group.output, ": 25 items\n")) << group.output;
    EXPECT_EQ(CountOf(group.output, "no support (item unknown: no process has registered \""), 24U);
    EXPECT_TRUE(Holds(group.output, "answered by owner1\n"));
    EXPECT_TRUE(Holds(group.output, "25 of 25 done\n"));
}

TEST_F(GroupCommand, AClientThatDisappearsLeavesTheServerHealthyAndTheGroupEndsByItself) {
    const Child server = StartServer(true);
    const Child owner = StartShippedOwner();
    Child group = StartGroup({"later_ok"});
    ASSERT_TRUE(Eventually([&] { return Holds(group.Output(), "later_ok  running"); })) << group.Output();
    group.Kill();
    EXPECT_TRUE(Eventually([this] { return Holds(ServerLog(), "group wait stop overtime["); })) << ServerLog();
    EXPECT_TRUE(EventuallyAtRest(server));
    EXPECT_EQ(Group({"always_ok"}).exitCode, 0);
}

TEST_F(GroupCommand, AServerThatDiesEndsTheCommandWithThree) {
    Child server = StartServer();
    const Child owner = StartOwner("owner1", {"later"});
    Child group = StartGroup({"later"});
    ASSERT_TRUE(Eventually([&] { return Holds(group.Output(), "later  running"); })) << group.Output();
    server.Kill();
    EXPECT_EQ(group.Wait(), 3) << group.Output();
}

TEST_F(GroupCommand, ATerminalShowsARedrawnTable) {
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    const std::string command = std::string(OMINSPECTCTL_PROGRAM) + " group always_ok later_ok";
    const Outcome group = support::Run({"/usr/bin/script", "-qec", command, "/dev/null"}, {"TERM=xterm"});
    EXPECT_EQ(group.exitCode, 0) << group.output;
    EXPECT_TRUE(Holds(group.output, "\x1b[5A\r\x1b[J"));  // title, heads, two items and the summary, drawn anew
    EXPECT_TRUE(Holds(group.output, "later_ok   waiting") || Holds(group.output, "later_ok   running"));
    EXPECT_TRUE(Holds(group.output, "2 of 2 done"));
    EXPECT_TRUE(Holds(group.output.substr(group.output.rfind("\x1b[J")), " ms  late but fine\r\n")) << group.output;
}

TEST_F(GroupCommand, ATerminalThatIsClosedWithoutASignalStopsTheGroup) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"until"});
    BareTerminal terminal;
    Child group({"/bin/sh", "-c", R"(exec "$0" group until >"$1")", OMINSPECTCTL_PROGRAM, terminal.Path()},
                {"TERM=xterm"});
    EXPECT_TRUE(Eventually([&] { return Holds(terminal.Output(), "until  running"); })) << terminal.Output();
    terminal.Close();
    EXPECT_EQ(group.Wait(), 130) << group.Output();
    EXPECT_TRUE(EventuallyAtRest(server));
}

TEST_F(GroupCommand, TheFinalTableOnATerminalIsComplete) {
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    const std::string command = std::string("stty cols 40; ") + OMINSPECTCTL_PROGRAM + " group always_ok not_there";
    const Outcome group = support::Run({"/usr/bin/script", "-qec", command, "/dev/null"}, {"TERM=xterm"});
    EXPECT_EQ(group.exitCode, 1) << group.output;
    const std::string final = group.output.substr(group.output.rfind("\x1b[J"));
    EXPECT_TRUE(Holds(final, "no support (item unknown: no process has registered \"not_there\" with the server)\r\n"))
        << group.output;
    EXPECT_FALSE(Holds(final, "\u2026")) << group.output;
}

}  // namespace
}  // namespace support
