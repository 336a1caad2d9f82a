// The command run: whose result it shows, whom it holds up, and what becomes of a run that nobody waits for.
#include <csignal>
#include <sstream>

#include "programs.h"

namespace support {
namespace {

class RunCommand : public Programs {
protected:
    // The ids of the requests for items that clients have sent, in order.
    std::vector<std::string> RequestIds() const {
        std::vector<std::string> ids;
        std::istringstream lines(ServerLog());
        for (std::string line; std::getline(lines, line);) {
            const size_t at = line.find("recv msg id ");
            if (at == std::string::npos || !Holds(line, "from [ic-")) {
                continue;
            }
            const std::string id = line.substr(at + 12, line.find(' ', at + 12) - at - 12);
            if (id == "0" || id == "18" || id == "37" || id == "38") {
                ids.push_back(id);
            }
        }
        return ids;
    }

    // Whether the server comes to tell this of an item.
    static bool EventuallyTold(const std::string& event) {
        return Eventually([&] {
            const auto events = TakeEvents();
            return std::find(events.begin(), events.end(), event) != events.end();
        });
    }
};

TEST_F(RunCommand, StartsEveryItemInTheBackgroundWithoutAskingForTheCatalogue) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"bsp_mainboard_ft@ok", "conf_ldapserver_ft@ok"});
    const Outcome run = Ctl({"run", "bsp_mainboard_ft", "conf_ldapserver_ft"});
    EXPECT_EQ(run.exitCode, 0) << run.output;
    EXPECT_TRUE(run.output.starts_with("ITEM                STATUS         TIME  TEXT\n")) << run.output;
    EXPECT_EQ(CountOf(run.output, "ITEM "), 1U) << run.output;
    EXPECT_EQ(RequestIds(), (std::vector<std::string>{"18", "18"}));
}

TEST_F(RunCommand, SaysThatItsResultsAreNotRemembered) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"ok"});
    const Outcome run = support::Run(CommandLine({"run", "ok"}), {"XDG_STATE_HOME=/dev/null"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(
        run.output.ends_with("ominspectctl: the results are not remembered for 'list': cannot make the folder "
                             "/dev/null/ominspect: Not a directory\n"))
        << run.output;
}

TEST_F(RunCommand, RunsSynchronouslyWhenToldTo) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"ok"});
    EXPECT_EQ(Ctl({"run", "--sync", "ok"}).exitCode, 0);
    EXPECT_EQ(RequestIds(), std::vector<std::string>{"0"});
}

TEST_F(RunCommand, HoldsUpNobodyWhileAnOwnerTakesItsTime) {
    const Child server = StartServer();
    const Child slow = StartOwner("owner1", {"bsp_mainboard_ft@never"});
    const Child quick = StartOwner("owner2", {"ok"});
    Child first = StartCtl({"run", "bsp_mainboard_ft"});
    ASSERT_TRUE(EventuallyTold("bsp_mainboard_ft running/begin"));
    const Outcome second = Ctl({"run", "ok", "--timeout", "30"});
    EXPECT_EQ(second.exitCode, 0) << second.output;
    EXPECT_FALSE(first.Wait(std::chrono::seconds(0))) << first.Output();
}

TEST_F(RunCommand, SaysThatASynchronousRunKeepsTheServer) {
    const Child server = StartServer(true);
    const Child owner = StartOwner("owner1", {"never"});
    const Outcome run = Ctl({"run", "--sync", "never", "--timeout", "1"});
    EXPECT_EQ(run.exitCode, 4) << run.output;
    EXPECT_TRUE(Holds(run.output, "; the server goes on waiting for the item's owner\n")) << run.output;
}

TEST_F(RunCommand, AStopShowsTheOneAnswerAlsoWhenTheOwnerSaysRunning) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"later", "until"});
    const Outcome stop = Ctl({"run", "later", "--cmd", "stop", "--timeout", "30"});
    EXPECT_EQ(stop.exitCode, 1) << stop.output;
    EXPECT_TRUE(Holds(stop.output, "later  running")) << stop.output;
    EXPECT_EQ(Ctl({"run", "until", "--cmd", "stop"}).exitCode, 0);
    EXPECT_FALSE(Holds(Ctl({"list"}).output, "answered by owner1")) << "a stop's answer is no result of the item";
}

TEST_F(RunCommand, CtrlCStopsTheItemAndLeavesTheOthersOut) {
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    Child run = StartCtl({"run", "long_run", "always_ok", "--json"});
    const pid_t command = AwaitCommand();
    run.Signal(SIGINT);
    EXPECT_EQ(run.Wait(), 130) << run.Output();
    EXPECT_TRUE(Holds(run.Output(), "ominspectctl: long_run: cancelled; the item was stopped\n")) << run.Output();
    EXPECT_TRUE(Holds(run.Output(), R"({"item":"always_ok","error":{"code":"cancelled","text":"cancelled; not run"}})"))
        << run.Output();
    EXPECT_NE(kill(command, 0), 0) << "the command outlived its run";
    EXPECT_TRUE(EventuallyAtRest(server));
}

TEST_F(RunCommand, TheTimeLimitStopsTheItemAndExitsWithFour) {
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    const Outcome run = Ctl({"run", "long_run", "--timeout", "2"});
    EXPECT_EQ(run.exitCode, 4) << run.output;
    EXPECT_TRUE(Holds(run.output, "long_run: the time limit is over; the item was stopped\n")) << run.output;
    EXPECT_NE(kill(AwaitCommand(), 0), 0) << "the command outlived its run";
    EXPECT_TRUE(EventuallyAtRest(server));
}

TEST_F(RunCommand, ARunThatSomebodyLeftIsWaitedForAndItsAnswerIsNotShown) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"until"});
    Child left = StartCtl({"run", "until"});
    ASSERT_TRUE(owner.EventuallyWrote("asked"));
    left.Kill();
    Child run = StartCtl({"run", "until"});
    ASSERT_TRUE(EventuallySays(run, "until: another run of it is under way; it is run again after that\n"));
    EXPECT_EQ(Ctl({"run", "until", "--cmd", "stop"}).exitCode, 0);
    ASSERT_TRUE(owner.EventuallyWrote("asked", 2)) << run.Output();
    EXPECT_FALSE(Holds(run.Output(), "stopped")) << run.Output();
    EXPECT_EQ(Ctl({"run", "until", "--cmd", "stop"}).exitCode, 0);
    EXPECT_EQ(run.Wait(), 1) << run.Output();
    EXPECT_TRUE(Holds(run.Output(), "until  fail")) << run.Output();
}

TEST_F(RunCommand, TheResultOfARunThatTheServerDoesNotLetGoIsSaidToBeAnothers) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"later:1000"});
    RunItem("later");  // which the server counts for ever
    ASSERT_TRUE(EventuallyText("later", "timeout"));
    const Outcome run = Ctl({"run", "later"});
    EXPECT_TRUE(Holds(run.output, "later: another run of it is under way; it is run again after that\n")) << run.output;
    EXPECT_TRUE(Holds(run.output, "later: this is the result of another run, which the server does not let go\n"))
        << run.output;
    EXPECT_TRUE(Holds(run.output, "timeout")) << run.output;
}

TEST_F(RunCommand, AResetSucceedsAndSaysWhatItIs) {
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    const Outcome reset = Ctl({"run", "always_ok", "--cmd", "done"});
    EXPECT_EQ(reset.exitCode, 0) << reset.output;
    EXPECT_TRUE(Holds(reset.output, "always_ok  idle")) << reset.output;
    EXPECT_TRUE(Holds(Ctl({"state", "always_ok", "--json"}).output, R"("state":"idle")"));
    const Outcome unknown = Ctl({"run", "always_okay", "--cmd", "done"});
    EXPECT_EQ(unknown.exitCode, 1) << unknown.output;
    EXPECT_TRUE(Holds(unknown.output, "(item unknown: no process has registered \"always_okay\" with the server)\n"))
        << unknown.output;
}

TEST_F(RunCommand, EveryItemIsAnsweredForWithoutAServer) {
    const Outcome run = Ctl({"run", "first", "second", "--json"});
    EXPECT_EQ(run.exitCode, 3);
    for (const char* item : {"first", "second"}) {
        EXPECT_TRUE(Holds(run.output, std::string(R"({"item":")") + item +
                                          R"(","error":{"code":"server-absent","text":"server absent: no process )"))
            << run.output;
        EXPECT_TRUE(Holds(run.output, std::string("ominspectctl: ") + item +
                                          ": server absent: no process \"ominspect\" on the bus at " + bus_.Address()))
            << run.output;
    }
}

TEST_F(RunCommand, AnItemWhoseOwnerReportsLaterIsWaitedForAlsoAfterASynchronousRequest) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"bsp_mainboard_ft:3000@later"});
    const Outcome run = Ctl({"run", "bsp_mainboard_ft", "--sync"});
    EXPECT_EQ(run.exitCode, 1) << run.output;
    EXPECT_TRUE(Holds(run.output, "bsp_mainboard_ft: no result at once")) << run.output;
    EXPECT_FALSE(Holds(run.output, "another run")) << "it is its own\n" << run.output;
    EXPECT_TRUE(Holds(run.output, "timeout")) << run.output;
}

}  // namespace
}  // namespace support
