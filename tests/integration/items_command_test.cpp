// What ominspectctl knows of the items and their owners: list, state, reset and wait, and the shell's completion.
#include <csignal>
#include <filesystem>
#include <iterator>
#include <optional>
#include <utility>

#include "programs.h"
#include "support/raw_connection.h"

namespace support {
namespace {

class ItemsCommand : public Programs {
protected:
    // What bash offers for the last of these words.
    static std::string Completed(const std::vector<std::string>& words) {
        const std::string script = R"(
            source "$0"
            program=$1; shift
            COMP_WORDS=(ominspectctl "$@") COMP_CWORD=$#
            [[ $(complete -p ominspectctl) == *"-F _ominspectctl ominspectctl" ]] || echo "not registered"
            _ominspectctl "$program" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD-1]}"
            echo "${COMPREPLY[*]}")";
        std::vector<std::string> command{"/bin/bash", "-uc", script, COMPLETION_FILE, OMINSPECTCTL_PROGRAM};
        command.insert(command.end(), words.begin(), words.end());
        return support::Run(command).output;
    }

    // What an interactive zsh makes of each line.
    static std::string CompletedByZsh(const std::vector<std::string>& lines) {
        const auto folder = [](const char* file) { return std::filesystem::path(file).parent_path().string(); };
        std::vector<std::string> command{"/bin/zsh", "-f", ZSH_SCRIPT, folder(ZSH_COMPLETION_FILE),
                                         folder(OMINSPECTCTL_PROGRAM)};
        command.insert(command.end(), lines.begin(), lines.end());
        return support::Run(command).output;
    }
};

TEST_F(ItemsCommand, TheListShowsConfiguredAndOwnedItemsWithTheirOwnersAndResults) {
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    EXPECT_EQ(Ctl({"run", "always_critical", "conf_ldapserver_ft"}).exitCode, 1);
    const std::string list = Ctl({"list"}).output;
    EXPECT_TRUE(Holds(list, "\nbsp_mainboard_ft               error  sync   -           unknown   -\n")) << list;
    EXPECT_TRUE(Holds(list, "\nconf_ldapserver_ft             error  async  -           unknown   fail, ")) << list;
    EXPECT_TRUE(Holds(list, " s ago: no support\n")) << list;
    EXPECT_TRUE(Holds(list, "\nalways_critical                -      -      test_owner  not idle  fail, ")) << list;
    EXPECT_TRUE(Holds(list, " s ago: it is broken\n")) << list;
    EXPECT_TRUE(Holds(list, "\nlong_run                       -      -      test_owner  idle      -\n")) << list;
    EXPECT_EQ(CountOf(list, "\n"), 1U + 25U + 5U + 1U) << list;  // the heads; the server has an item of its own

    const std::string json = Ctl({"list", "--json"}).output;
    EXPECT_TRUE(Holds(json, R"({"item":"always_ok","isConfigured":false,"owners":[{"process":"test_owner",)")) << json;
    EXPECT_TRUE(Holds(json, R"({"item":"bsp_mainboard_ft","isConfigured":true,"level":"error","isSync":true,)"
                            R"("owners":[],"state":"unknown"})"))
        << json;
    EXPECT_TRUE(Holds(json, R"("total":25})")) << json;
    const std::string names = "\n" + Ctl({"list", "--names"}).output;
    EXPECT_TRUE(Holds(names, "\nconf_ldapserver_ft\n") && Holds(names, "\nlater_ok\n")) << names;
    EXPECT_EQ(Ctl({"list", "--names", "--json"}).exitCode, 2);
}

TEST_F(ItemsCommand, TheListShowsTheResultOfACheck) {
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    ASSERT_EQ(Ctl({"check", "always_ok"}).exitCode, 0);
    const std::string list = Ctl({"list"}).output;
    EXPECT_TRUE(Holds(list, " s ago: fine\n")) << list;
}

TEST_F(ItemsCommand, TheListNamesAnOwnerThatDoesNotAnswer) {
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    owner.Signal(SIGSTOP);
    const Outcome list = Ctl({"list"});
    EXPECT_EQ(list.exitCode, 0);
    EXPECT_TRUE(Holds(list.output, "ominspectctl: the process test_owner does not say which items it owns\n"))
        << list.output;
    owner.Signal(SIGCONT);
}

TEST_F(ItemsCommand, AMisspeltItemIsSaidToBeUnknown) {
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    for (const char* command : {"state", "reset"}) {
        const Outcome misspelt = Ctl({command, "always_okay"});
        EXPECT_EQ(misspelt.exitCode, 1) << command;
        EXPECT_TRUE(
            Holds(misspelt.output,
                  "ominspectctl: item unknown: no process has registered \"always_okay\" with the server, as far "
                  "as the owners on the bus show\n"))
            << misspelt.output;
    }
    EXPECT_TRUE(Holds(Ctl({"state", "always_okay", "--json"}).output,
                      R"({"item":"always_okay","state":"unknown","hint":"item unknown: no process has registered )"));
    EXPECT_EQ(Ctl({"state", "later_ok"}).output, "ITEM      STATE\nlater_ok  idle\n");
    EXPECT_EQ(Ctl({"reset", "later_ok"}).output, "later_ok is idle\n");
}

// It shows no items, but what the server holds a result of is known.
TEST_F(ItemsCommand, AnItemWithAResultIsKnownWhoeverOwnsIt) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"ok"});
    EXPECT_EQ(Ctl({"run", "ok"}).exitCode, 0);
    EXPECT_EQ(Ctl({"state", "ok"}).exitCode, 0);
    EXPECT_EQ(Ctl({"reset", "ok"}).output, "ok is idle\n");
    EXPECT_EQ(Ctl({"state", "ok"}).exitCode, 1);
}

TEST_F(ItemsCommand, WaitReturnsWhenTheServerAndTheItemsAreThere) {
    Child forServer = StartCtl({"wait"});
    Child forItems = StartCtl({"wait", "always_ok", "later_ok", "--json"});
    const Child server = StartServer();
    EXPECT_EQ(forServer.Wait(), 0) << forServer.Output();
    EXPECT_EQ(forServer.Output(), "");
    EXPECT_FALSE(forItems.Wait(std::chrono::seconds(0)));
    const Child owner({OMINSPECT_OWNER_PROGRAM, OWNER_FILE});
    EXPECT_EQ(forItems.Wait(), 0) << forItems.Output();
    EXPECT_EQ(forItems.Output(), "{\"missing\":[]}\n");
    EXPECT_EQ(Ctl({"run", "always_ok", "later_ok"}).exitCode, 0);
}

TEST_F(ItemsCommand, WaitGoesOnOverABusThatComesBack) {
    const std::string address = "unix:path=" + Folder() + "/bus";
    const std::string anyAddress = "unix:tmpdir=/tmp";
    const std::string file = Folder() + "/bus.conf";
    std::string config = Contents(PRIVATE_BUS_CONFIG);
    WriteFile(file, config.replace(config.find(anyAddress), anyAddress.size(), address));
    std::optional<PrivateBus> bus(std::in_place, file);
    Child wait(CommandLine({"wait"}), {"KIVO_BUS_ADDRESS=" + address});  // the daemon's own has its identity, too
    {
        const RawConnection observer;
        const std::string name = "com.kivo.proc.ic._3" + std::to_string(wait.Pid());
        ASSERT_TRUE(Eventually([&] { return observer.IsThere(name); }));
    }
    bus.reset();
    bus.emplace(file);
    const Child server({OMINSPECT_PROGRAM}, {"KIVO_LOG_DIR=" + Folder()});
    EXPECT_EQ(wait.Wait(), 0) << wait.Output();
}

TEST_F(ItemsCommand, WaitSaysWhatIsMissing) {
    const Outcome noServer = Ctl({"wait", "--timeout", "1"});
    EXPECT_EQ(noServer.exitCode, 4);
    EXPECT_EQ(noServer.output,
              "ominspectctl: the time limit is over; server absent: no process \"ominspect\" on the bus at " +
                  bus_.Address() + "\n");
    const std::string address = "unix:path=" + Folder() + "/no_bus";
    const Outcome noBus = support::Run(CommandLine({"wait", "--timeout", "1"}), {"KIVO_BUS_ADDRESS=" + address});
    EXPECT_EQ(noBus.exitCode, 4);
    EXPECT_TRUE(noBus.output.starts_with("ominspectctl: the time limit is over; bus unreachable at " + address + ": "))
        << noBus.output;

    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    const Outcome noItem = Ctl({"wait", "always_ok", "other", "--timeout", "1", "--json"});
    EXPECT_EQ(noItem.exitCode, 4);
    EXPECT_TRUE(noItem.output.starts_with(R"({"missing":["other"],"error":{"code":"time-limit","text":)"))
        << noItem.output;
    EXPECT_TRUE(Holds(noItem.output, "; item unknown: no process has registered \"other\" with the server"))
        << noItem.output;
    // Two requests a look, five looks a second.
    EXPECT_LE(CountOf(ServerLog(), " from [ic-"), 14U) << ServerLog();
    EXPECT_EQ(Ctl({"wait", ""}).exitCode, 2);
}

TEST_F(ItemsCommand, WaitSaysWhatWasMissingInTheEnd) {
    Child server = StartServer();
    Child wait = StartCtl({"wait", "other", "--timeout", "10"});
    // Two requests a look: it has looked once.
    ASSERT_TRUE(Eventually([this] { return CountOf(ServerLog(), " from [ic-") > 2; }));
    server.Kill();
    EXPECT_EQ(wait.Wait(), 4);
    EXPECT_TRUE(wait.Output().starts_with("ominspectctl: the time limit is over; server absent: ")) << wait.Output();
}

TEST_F(ItemsCommand, CtrlCEndsAWait) {
    Child wait = StartCtl({"wait"});
    // The second thread is the one that takes the signals.
    ASSERT_TRUE(Eventually([&] {
        const std::filesystem::directory_iterator threads("/proc/" + std::to_string(wait.Pid()) + "/task");
        return std::distance(begin(threads), end(threads)) > 1;
    }));
    wait.Signal(SIGINT);
    EXPECT_EQ(wait.Wait(), 130);
    EXPECT_EQ(wait.Output(), "ominspectctl: cancelled\n");
}

TEST_F(ItemsCommand, BashCompletesCommandsOptionsAndItems) {
    EXPECT_EQ(Completed({"r"}), "run reset\n");
    EXPECT_EQ(Completed({"wait", "--t"}), "--timeout\n");
    EXPECT_EQ(Completed({"run", "--s"}), "--sync\n");
    EXPECT_EQ(Completed({"run", "x", "--cmd", "d"}), "done\n");
    EXPECT_EQ(Completed({"run", "alw"}), "\n") << "without a server";
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    EXPECT_EQ(Completed({"run", "alw"}), "always_critical always_ok\n");
    EXPECT_EQ(Completed({"group", "--all", "later"}), "later_ok\n");
    EXPECT_EQ(Completed({"wait", "bsp_main"}), "bsp_mainboard_ft\n");
}

// Every option that the help names can be completed, and no other.
TEST_F(ItemsCommand, BashCompletesTheOptionsOfTheHelp) {
    for (const char* command :
         {"list", "run", "group", "stop", "reset", "state", "wait", "watch", "history", "check", "collect", "doctor"}) {
        const std::string help = Ctl({command, "--help"}).output;
        const std::string options = " " + Completed({command, "--"});
        std::string offered = options;
        for (size_t at = offered.find("--"); at != std::string::npos; at = offered.find("--", at + 2)) {
            const std::string option = offered.substr(at, offered.find_first_of(" \n", at) - at);
            EXPECT_TRUE(Holds(help, option)) << command << " " << option;
        }
        for (size_t at = help.find(" --"); at != std::string::npos; at = help.find(" --", at + 3)) {
            const std::string option = help.substr(at, help.find_first_of(" ,\n", at + 1) - at);
            EXPECT_TRUE(Holds(options, option)) << command << option;
        }
    }
}

// The session of the README, pasted into a shell as it stands: with the programs of this build, in a folder of its own.
TEST_F(ItemsCommand, TheSessionOfTheReadmeWorksAsOneBlock) {
    const std::string readme = Contents(README_FILE);
    const size_t title = readme.find("A minimal session on a bus of your own");
    ASSERT_NE(title, std::string::npos);
    const size_t begin = readme.find("```sh\n", title) + 6;
    std::string block = readme.substr(begin, readme.find("```\n", begin) - begin);
    const std::string programs =
        std::string(OMINSPECTCTL_PROGRAM).substr(0, std::string(OMINSPECTCTL_PROGRAM).rfind('/'));
    for (const auto& [from, to] :
         {std::pair<std::string, std::string>("/tmp", Folder()), {"build/release/bin", programs}}) {
        for (size_t at = block.find(from); at != std::string::npos; at = block.find(from, at + to.size())) {
            block.replace(at, from.size(), to);
        }
    }
    const Outcome session =
        support::Run({"/bin/bash", "-c",
                      "set -e\ncd " SOURCE_FOLDER "\n" + block + "echo \"ended with $?, and $(jobs | wc -l) jobs\""});
    EXPECT_TRUE(session.output.ends_with("ended with 0, and 0 jobs\n")) << session.output;
    EXPECT_TRUE(Holds(session.output, "\n3 of 3 done\n")) << session.output;
    EXPECT_TRUE(Holds(session.output, "\nmemory    ")) << session.output;
    for (const char* wrong : {"ominspectctl: ", "cannot", "No such", "unreachable", "absent", "lost"}) {
        EXPECT_FALSE(Holds(session.output, wrong)) << wrong << "\n" << session.output;
    }
}

TEST_F(ItemsCommand, ZshCompletesCommandsOptionsAndItems) {
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    EXPECT_EQ(
        CompletedByZsh({"ominspectctl ru", "ominspectctl doctor --con", "ominspectctl group --w",
                        "ominspectctl run always_o", "ominspectctl check say_", "ominspectctl run --timeout 5 later_"}),
        "ominspectctl run \n"
        "ominspectctl doctor --config \n"
        "ominspectctl group --wait \n"
        "ominspectctl run always_ok \n"
        "ominspectctl check say_argument \n"
        "ominspectctl run --timeout 5 later_ok \n");
}

TEST_F(ItemsCommand, ZshCompletesCommandsWithoutAServer) {
    EXPECT_EQ(CompletedByZsh({"ominspectctl col", "ominspectctl run always_o"}),
              "ominspectctl collect \nominspectctl run always_o\n");
}

}  // namespace
}  // namespace support
