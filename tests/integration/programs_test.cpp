// The programs as people use them: ominspectctl and ominspect-owner against a running server.
#include <algorithm>
#include <csignal>
#include <fstream>
#include <sstream>

#include "support/eventually.h"
#include "system.h"

namespace support {
namespace {

class Programs : public System {
protected:
    static Outcome Ctl(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), OMINSPECTCTL_PROGRAM);
        return support::Run(arguments);
    }

    // The items of owner.xml, once they are registered.
    Child StartShippedOwner() {
        Child owner({OMINSPECT_OWNER_PROGRAM, OWNER_FILE});
        EXPECT_TRUE(EventuallyText("always_ok", "fine")) << owner.Output();
        return owner;
    }

    static bool Holds(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }
};

TEST_F(Programs, ARunThatPassedExitsWithZeroAndShowsNameStatusAndText) {
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    const Outcome run = Ctl({"run", "always_ok"});
    EXPECT_EQ(run.exitCode, 0) << run.output;
    EXPECT_TRUE(Holds(run.output, "always_ok") && Holds(run.output, "success") && Holds(run.output, "fine"))
        << run.output;
}

TEST_F(Programs, ARunThatFailedExitsWithOne) {
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    const Outcome run = Ctl({"run", "always_critical"});
    EXPECT_EQ(run.exitCode, 1) << run.output;
    EXPECT_TRUE(Holds(run.output, "fail") && Holds(run.output, "it is broken")) << run.output;
    EXPECT_EQ(Ctl({"run", "not_there"}).exitCode, 1);
}

TEST_F(Programs, SeveralItemsRunOneAfterTheOtherAndTheHighestCodeCounts) {
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    EXPECT_EQ(Ctl({"run", "always_ok", "always_ok"}).exitCode, 0);
    const Outcome run = Ctl({"run", "always_critical", "not_there", "always_ok"});
    EXPECT_EQ(run.exitCode, 1) << run.output;
    const size_t critical = run.output.find("it is broken");
    const size_t unknown = run.output.find("unknown item");
    const size_t fine = run.output.find("fine");
    EXPECT_TRUE(critical < unknown && unknown < fine && fine != std::string::npos) << run.output;
    EXPECT_EQ(Ctl({"run", "always_ok", std::string(32, 'n')}).exitCode, 2);
}

TEST_F(Programs, TheArgumentReachesTheCommand) {
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    const Outcome run = Ctl({"run", "say_argument", "--cmd", "a \"quoted\" word", "--json"});
    EXPECT_EQ(run.exitCode, 0) << run.output;
    EXPECT_TRUE(Holds(run.output, R"(a \"quoted\" word)")) << run.output;
}

TEST_F(Programs, WithoutAServerTheExitCodeIsThree) {
    for (const char* command : {"run", "state", "reset", "group"}) {
        EXPECT_EQ(Ctl({command, "x"}).exitCode, 3);
    }
    EXPECT_EQ(Ctl({"stop", "17"}).exitCode, 3);
    EXPECT_EQ(Ctl({"list"}).exitCode, 3);
    EXPECT_EQ(Ctl({"group", "--all"}).exitCode, 3);
}

TEST_F(Programs, WithoutABusTheExitCodeIsThree) {
    const Outcome run =
        support::Run({OMINSPECTCTL_PROGRAM, "run", "x"}, {"KIVO_BUS_ADDRESS=unix:path=/nonexistent/bus"});
    EXPECT_EQ(run.exitCode, 3) << run.output;
}

TEST_F(Programs, WrongUseExitsWithTwo) {
    EXPECT_EQ(Ctl({"run"}).exitCode, 2);
    EXPECT_EQ(Ctl({"fly", "away"}).exitCode, 2);
    EXPECT_EQ(Ctl({"run", std::string(32, 'n')}).exitCode, 2);
    EXPECT_EQ(support::Run({OMINSPECT_OWNER_PROGRAM, "/nonexistent.xml"}).exitCode, 2);
}

TEST_F(Programs, ARunWaitsForAnItemThatReportsLater) {
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    const Outcome run = Ctl({"run", "later_ok", "always_ok", "--json"});
    EXPECT_EQ(run.exitCode, 0) << run.output;
    EXPECT_TRUE(Holds(run.output, R"({"item":"later_ok","status":"success","text":"late but fine")")) << run.output;
    EXPECT_TRUE(Holds(run.output, R"({"item":"always_ok","status":"success","text":"fine")")) << run.output;
}

TEST_F(Programs, ARunThatTakesTooLongExitsWithFourAndGoesOnInTheServer) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"later"});
    const Outcome run = Ctl({"run", "later", "--timeout", "1"});
    EXPECT_EQ(run.exitCode, 4) << run.output;
    EXPECT_TRUE(Holds(run.output, "later: no result within the time limit; the item still runs")) << run.output;
    EXPECT_TRUE(Holds(Ctl({"state", "later"}).output, "not idle"));
}

// The built-in configuration has bsp_mainboard_ft as a synchronous item and conf_ldapserver_ft as the other kind.
TEST_F(Programs, ARunTakesTheRoadThatTheConfigurationNames) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"bsp_mainboard_ft@ok", "conf_ldapserver_ft@ok", "ok"});
    const auto roads = [this] {
        std::string log = ServerLog();
        std::vector<std::string> ids;
        std::istringstream lines(log);
        for (std::string line; std::getline(lines, line);) {
            const size_t at = line.find("recv msg id ");
            if (at == std::string::npos || !Holds(line, "from [ic-")) {
                continue;
            }
            const std::string id = line.substr(at + 12, line.find(' ', at + 12) - at - 12);
            if (id == "0" || id == "18") {
                ids.push_back(id);
            }
        }
        return ids;
    };
    EXPECT_EQ(Ctl({"run", "bsp_mainboard_ft"}).exitCode, 0);
    EXPECT_EQ(roads(), std::vector<std::string>{"0"});
    EXPECT_EQ(Ctl({"run", "conf_ldapserver_ft", "ok"}).exitCode, 0);
    EXPECT_EQ(roads(), (std::vector<std::string>{"0", "18", "18"}));
}

TEST_F(Programs, ASynchronousItemWhoseOwnerReportsLaterIsWaitedForAndSaidToBeMisconfigured) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"bsp_mainboard_ft:3000@later"});
    const Outcome run = Ctl({"run", "bsp_mainboard_ft"});
    EXPECT_EQ(run.exitCode, 1) << run.output;
    EXPECT_TRUE(Holds(run.output, "bsp_mainboard_ft gave no result at once")) << run.output;
    EXPECT_TRUE(Holds(run.output, "timeout")) << run.output;
}

TEST_F(Programs, AMalformedResultIsSaidAndTheOtherItemsRun) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"size_192", "bsp_mainboard_ft@size_192", "ok"});
    const Outcome run = Ctl({"run", "size_192", "bsp_mainboard_ft", "ok"});
    EXPECT_EQ(run.exitCode, 3) << run.output;
    EXPECT_TRUE(Holds(run.output, "size_192: a result with a text that does not end")) << run.output;
    EXPECT_TRUE(Holds(run.output, "answered by owner1")) << run.output;
}

TEST_F(Programs, TheListShowsTheConfiguredItemsAndTheirStates) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"conf_ldapserver_ft@ok"});
    EXPECT_EQ(Ctl({"run", "conf_ldapserver_ft"}).exitCode, 0);
    const Outcome list = Ctl({"list"});
    EXPECT_EQ(list.exitCode, 0);
    EXPECT_TRUE(Holds(list.output, "bsp_mainboard_ft               error  sync   idle      -\n")) << list.output;
    EXPECT_TRUE(Holds(list.output, "conf_ldapserver_ft             error  async  not idle  success, ")) << list.output;
    EXPECT_TRUE(Holds(list.output, ": answered by owner1\n")) << list.output;
    EXPECT_EQ(std::count(list.output.begin(), list.output.end(), '\n'), 26);
    EXPECT_TRUE(Holds(Ctl({"list", "--json"}).output, R"("total":25})"));
}

TEST_F(Programs, AResetSetsAnItemBackToIdle) {
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    EXPECT_TRUE(Holds(Ctl({"state", "always_ok", "--json"}).output, "not idle"));
    EXPECT_EQ(Ctl({"reset", "always_ok"}).exitCode, 0);
    EXPECT_TRUE(Holds(Ctl({"state", "always_ok", "--json"}).output, R"("state":"idle")"));
    EXPECT_EQ(Ctl({"reset", "always_ok", "--json"}).output, "{\"item\":\"always_ok\",\"state\":\"idle\"}\n");
}

TEST_F(Programs, WatchShowsTheEventsOfARun) {
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    Child watch({OMINSPECTCTL_PROGRAM, "watch", "--json", "--count", "4"});
    // It may miss what happened before it listened, so runs go on until it has seen its four.
    EXPECT_TRUE(Eventually([&] {
        Ctl({"run", "always_ok"});
        return watch.Wait(std::chrono::seconds(0)).has_value();
    })) << watch.Output();
    EXPECT_EQ(watch.Wait(), 0);
    EXPECT_TRUE(Holds(watch.Output(), "always_ok")) << watch.Output();
}

TEST_F(Programs, StateTellsIdleFromNot) {
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    EXPECT_EQ(Ctl({"run", "always_ok", "--cmd", "done"}).exitCode, 1);  // a reset has no result to pass
    EXPECT_TRUE(Holds(Ctl({"state", "always_ok", "--json"}).output, "idle"));
}

TEST_F(Programs, AnOwnerThatIsToldToEndTakesItsItemsBackAndEndsItsCommands) {
    const Child server = StartServer();
    const std::string pidFile = testing::TempDir() + "/long_run.pid";
    std::remove(pidFile.c_str());
    Child owner({OMINSPECT_OWNER_PROGRAM, OWNER_FILE}, {"PID_FILE=" + pidFile});
    EXPECT_TRUE(EventuallyText("always_ok", "fine")) << owner.Output();
    RunItem("long_run");
    pid_t command = 0;
    EXPECT_TRUE(Eventually([&] { return static_cast<bool>(std::ifstream(pidFile) >> command); }));
    owner.Signal(SIGTERM);
    EXPECT_EQ(owner.Wait(), 0) << owner.Output();
    EXPECT_TRUE(Eventually([&] { return kill(command, 0) != 0; })) << "the command outlived its owner";
    EXPECT_TRUE(EventuallyText("always_ok", "no support"));
}

}  // namespace
}  // namespace support
