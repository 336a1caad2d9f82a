// The programs as people use them: ominspectctl and ominspect-owner against a running server.
#include <array>
#include <csignal>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "programs.h"

namespace support {
namespace {

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
    const size_t unknown = run.output.find("item unknown");
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

TEST_F(Programs, AMalformedResultIsSaidAndTheOtherItemsRun) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"size_192", "bsp_mainboard_ft@size_192", "ok"});
    const Outcome run = Ctl({"run", "size_192", "bsp_mainboard_ft", "ok"});
    EXPECT_EQ(run.exitCode, 3) << run.output;
    EXPECT_TRUE(Holds(run.output, "size_192: a result with a text that does not end")) << run.output;
    EXPECT_TRUE(Holds(run.output, "answered by owner1")) << run.output;
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

TEST_F(Programs, WatchShowsPeopleALineForEachEventAndRemembersTheResults) {
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    Child watch = StartCtl({"watch", "--count", "4"});
    ASSERT_TRUE(EventuallySays(watch, "ominspectctl: watching\n"));
    RunItem("always_ok");
    EXPECT_EQ(watch.Wait(), 0) << watch.Output();
    const std::string shown = watch.Output();
    EXPECT_EQ(CountOf(shown, "\n"), 5U) << shown;
    const std::vector<std::string> lines{"  busy\n", "  run   always_ok                        running   begin\n",
                                         "  run   always_ok                        success   fine\n", "  idle\n"};
    for (size_t at = 0; const std::string& line : lines) {
        at = shown.find(line, at);
        EXPECT_NE(at, std::string::npos) << line << shown;
    }
    EXPECT_TRUE(Holds(Ctl({"list"}).output, " s ago: fine\n"));
}

TEST_F(Programs, WatchEndsWithItsTimeLimitAndWithCtrlC) {
    Child endless = StartCtl({"watch"});
    Child limited = StartCtl({"watch", "--timeout", "1"});
    Child counting = StartCtl({"watch", "--timeout", "1", "--count", "1"});
    EXPECT_EQ(limited.Wait(), 0) << limited.Output();
    EXPECT_EQ(counting.Wait(), 4) << counting.Output();
    ASSERT_TRUE(EventuallySays(endless, "; waiting for it\n"));
    EXPECT_FALSE(endless.Wait(std::chrono::seconds(0)));
    endless.Signal(SIGINT);
    EXPECT_EQ(endless.Wait(), 0) << endless.Output();
}

TEST_F(Programs, WatchEndsWithTheBusAndWithItsOutput) {
    std::optional<PrivateBus> bus(std::in_place);
    Child watch = StartCtl({"watch"});
    ASSERT_TRUE(EventuallySays(watch, "; waiting for it\n"));
    bus.reset();
    EXPECT_EQ(watch.Wait(), 3) << watch.Output();
    EXPECT_TRUE(watch.Output().ends_with("ominspectctl: the bus was lost\n")) << watch.Output();

    Child full({"/bin/sh", "-c", "exec \"$0\" watch >/dev/full", OMINSPECTCTL_PROGRAM});
    ASSERT_TRUE(EventuallySays(full, "; waiting for it\n"));
    const Child server = StartServer();
    EXPECT_EQ(full.Wait(), 1) << full.Output();
    EXPECT_TRUE(Holds(full.Output(), "ominspectctl: cannot write the output\n")) << full.Output();
}

// A pipe that nobody reads holds up the first events, and those after them until there is no more room.
TEST_F(Programs, WatchSaysHowManyEventsWereLost) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"ok", "last@ok"});
    const std::string path = Folder() + "/pipe";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int pipe = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(fcntl(pipe, F_SETPIPE_SZ, 4096), 4096);
    Child watch({"/bin/sh", "-c", R"(exec "$0" watch >"$1")", OMINSPECTCTL_PROGRAM, path});
    ASSERT_TRUE(EventuallySays(watch, "watching\n"));
    for (int i = 0; i < 400; ++i) {
        RunItem("ok");
    }
    std::string shown;
    EXPECT_TRUE(Eventually([&] {
        RunItem("last");  // shown when there is room again, and then those before it are shown or lost
        std::array<char, 4096> buffer;
        for (ssize_t got = 0; (got = read(pipe, buffer.data(), buffer.size())) > 0;) {
            shown.append(buffer.data(), static_cast<size_t>(got));
        }
        return Holds(shown, "  run   last ");
    })) << shown;
    watch.Signal(SIGINT);
    EXPECT_EQ(watch.Wait(), 0);
    EXPECT_TRUE(watch.Output().ends_with(" events were lost\n")) << watch.Output();
    close(pipe);
}

// The pipe is full from the beginning. The other watch shows when this one has seen the server, too.
TEST_F(Programs, AWatchWhoseOutputIsStuckCanBeEnded) {
    const std::string path = Folder() + "/pipe";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int pipe = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    while (write(pipe, "x", 1) == 1) {
    }
    Child stuck({"/bin/sh", "-c", R"(exec "$0" watch >"$1")", OMINSPECTCTL_PROGRAM, path});
    ASSERT_TRUE(EventuallySays(stuck, "; waiting for it\n"));
    const Child other = StartCtl({"watch"});
    ASSERT_TRUE(EventuallySays(other, "; waiting for it\n"));
    Child server = StartServer();
    ASSERT_TRUE(EventuallySays(other, "  server started\n"));
    server.Kill();
    ASSERT_TRUE(EventuallySays(other, "  server left\n"));
    stuck.Signal(SIGINT);
    EXPECT_EQ(stuck.Wait(), 128 + SIGALRM);
    close(pipe);
}

TEST_F(Programs, WatchSaysWhenTheServerLeavesAndStarts) {
    Child watch = StartCtl({"watch", "--json", "--count", "5"});
    ASSERT_TRUE(EventuallySays(watch, "ominspectctl: server absent: no process \"ominspect\" on the bus at " +
                                          bus_.Address() + "; waiting for it\n"));
    Child server = StartServer();
    ASSERT_TRUE(EventuallySays(watch, R"("event":"server","present":true})"));
    server.Kill();
    ASSERT_TRUE(EventuallySays(watch, R"("event":"server","present":false})"));
    Child again = StartServer();
    EXPECT_TRUE(Eventually([&] { return CountOf(watch.Output(), R"("present":true})") == 2; })) << watch.Output();
    again.Kill();
    const Child third = StartServer();  // at once, so that nobody sees it gone
    EXPECT_EQ(watch.Wait(), 0) << watch.Output();
    EXPECT_EQ(CountOf(watch.Output(), R"("event":"server")"), 5U) << watch.Output();
}

TEST_F(Programs, AnOwnerThatLosesTheBusSaysSoInTheWordsOfTheOtherPrograms) {
    std::optional<PrivateBus> bus(std::in_place);
    const std::string address = bus->Address();
    Child owner({OMINSPECT_OWNER_PROGRAM, OWNER_FILE});
    ASSERT_TRUE(EventuallySays(owner, "ominspect-owner: test_owner serves 5 items\n"));
    bus.reset();
    EXPECT_EQ(owner.Wait(), 3);
    EXPECT_TRUE(Holds(owner.Output(), "ominspect-owner: bus unreachable at " + address + ": the connection was lost\n"))
        << owner.Output();
}

TEST_F(Programs, AnOwnerSaysWhatItServesAndNothingMoreWhileAllIsWell) {
    const Child server = StartServer();
    Child owner = StartShippedOwner();
    EXPECT_EQ(Ctl({"run", "later_ok"}).exitCode, 0);
    owner.Signal(SIGTERM);
    EXPECT_EQ(owner.Wait(), 0);
    EXPECT_EQ(owner.Output(), "ominspect-owner: test_owner serves 5 items\n");
}

TEST_F(Programs, AnOwnerServesAlsoWhenNobodyReadsWhatItSays) {
    const Child server = StartServer();
    const std::string pipe = Folder() + "/nobody_reads";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    // Open for reading too until it is the standard error: a pipe without a reader cannot be opened for writing.
    const Child owner({"/bin/sh", "-c", R"(exec 3<>"$0" && exec 2>"$0" 3<&- && exec "$@")", pipe,
                       OMINSPECT_OWNER_PROGRAM, OWNER_FILE});
    EXPECT_TRUE(EventuallyText("always_ok", "fine"));
}

TEST_F(Programs, AnOwnerThatLosesTheBusEndsItsCommandsAndSaysWhatIsLost) {
    std::optional<PrivateBus> bus(std::in_place);
    const Child server({OMINSPECT_PROGRAM}, {"KIVO_LOG_DIR=" + Folder()});
    Child owner({OMINSPECT_OWNER_PROGRAM, OWNER_FILE}, {"PID_FILE=" + Folder() + "/long_run.pid"});
    EXPECT_EQ(Ctl({"wait", "long_run"}).exitCode, 0);
    const Child run = StartCtl({"run", "long_run"});
    const pid_t command = AwaitCommand();
    bus.reset();
    EXPECT_EQ(owner.Wait(), 3) << owner.Output();
    EXPECT_NE(kill(command, 0), 0) << "the command outlived its owner";
    EXPECT_TRUE(Holds(owner.Output(), "ominspect-owner: the result of long_run is lost: the bus cannot be reached\n"))
        << owner.Output();
}

TEST_F(Programs, AnOwnerThatIsToldToEndTakesItsItemsBackAndEndsItsCommands) {
    const Child server = StartServer();
    Child owner = StartShippedOwner();
    RunItem("long_run");
    const pid_t command = AwaitCommand();
    owner.Signal(SIGTERM);
    EXPECT_EQ(owner.Wait(), 0) << owner.Output();
    EXPECT_TRUE(Eventually([&] { return kill(command, 0) != 0; })) << "the command outlived its owner";
    EXPECT_TRUE(EventuallyText("always_ok", "no support"));
}

}  // namespace
}  // namespace support
