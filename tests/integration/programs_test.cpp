// The programs as people use them: ominspectctl and ominspect-owner against a running server.
#include <csignal>
#include <fstream>

#include "system.h"

namespace kivo::test {
namespace {

class Programs : public System {
protected:
    static Outcome Ctl(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), OMINSPECTCTL_PROGRAM);
        return kivo::test::Run(arguments);
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
    EXPECT_EQ(Ctl({"run", "x"}).exitCode, 3);
    EXPECT_EQ(Ctl({"state", "x"}).exitCode, 3);
}

TEST_F(Programs, WithoutABusTheExitCodeIsThree) {
    const Outcome run =
        kivo::test::Run({OMINSPECTCTL_PROGRAM, "run", "x"}, {"KIVO_BUS_ADDRESS=unix:path=/nonexistent/bus"});
    EXPECT_EQ(run.exitCode, 3) << run.output;
}

TEST_F(Programs, WrongUseExitsWithTwo) {
    EXPECT_EQ(Ctl({"run"}).exitCode, 2);
    EXPECT_EQ(Ctl({"fly", "away"}).exitCode, 2);
    EXPECT_EQ(Ctl({"run", std::string(32, 'n')}).exitCode, 2);
    EXPECT_EQ(kivo::test::Run({OMINSPECT_OWNER_PROGRAM, "/nonexistent.xml"}).exitCode, 2);
}

TEST_F(Programs, AnItemThatReportsLaterIsSaidToRunAndItsEndIsSeenByWatch) {
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    const Outcome run = Ctl({"run", "later_ok", "--json"});
    EXPECT_EQ(run.exitCode, 4) << run.output;
    EXPECT_TRUE(Holds(run.output, R"("running")")) << run.output;
    EXPECT_TRUE(EventuallyText("later_ok", "late but fine"));
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
}  // namespace kivo::test
