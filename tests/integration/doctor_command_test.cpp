// What doctor knows of the owners of a configuration's items, beside what the unit tests say of the file.
#include <pwd.h>
#include <unistd.h>

#include <csignal>

#include "programs.h"

namespace support {
namespace {

constexpr const char* kTooLong = "12345678901234567890123456789012";

class DoctorCommand : public Programs {
protected:
    using Programs::Programs;

    // A configuration with these items, good if all names are.
    std::string Configuration(const std::vector<std::string>& items) const {
        std::string xml = "<c><DiagnoseList>";
        for (const std::string& item : items) {
            xml += "<DiagnoseItem name='" + item + "' level='warn' isSync='true'/>";
        }
        const std::string path = Folder() + "/c.xml";
        WriteFile(path, xml +
                            "</DiagnoseList><LogCollect><Log srcPath='/a' dstPath='/b' timeout='7' isFolder='true'/>"
                            "</LogCollect></c>");
        return path;
    }

    static Outcome Doctor(const std::string& file, const std::vector<std::string>& more = {}) {
        std::vector<std::string> arguments{"doctor", "--config", file};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return Ctl(arguments);
    }

    // What it says after the file's own summary.
    static std::string Ownership(const Outcome& outcome) {
        const std::string last = ", collection entries: 1\n";
        const size_t at = outcome.output.find(last);
        return at == std::string::npos ? "no summary: " + outcome.output : outcome.output.substr(at + last.size());
    }

    static bool EventuallyOwned(const std::string& file, const std::string& expected) {
        return Eventually([&] { return Holds(Ownership(Doctor(file)), expected); });
    }
};

TEST_F(DoctorCommand, NamesOwnersOfConfiguredItemsAndOwnedItemsThatAreNotConfigured) {
    const std::string file = Configuration({"always_ok", "conf_sip_ft", "always_ok", kTooLong});
    const Child owner({OMINSPECT_OWNER_PROGRAM, OWNER_FILE});
    ASSERT_TRUE(EventuallyOwned(file, "item \"later_ok\": owned by test_owner, not configured\n"));
    const Outcome outcome = Doctor(file);
    EXPECT_EQ(Ownership(outcome),
              "item \"always_ok\": owned by test_owner\n"
              "item \"conf_sip_ft\": no process owns it\n"
              "item \"always_critical\": owned by test_owner, not configured\n"
              "item \"later_ok\": owned by test_owner, not configured\n"
              "item \"long_run\": owned by test_owner, not configured\n"
              "item \"say_argument\": owned by test_owner, not configured\n");
    EXPECT_EQ(outcome.exitCode, 1) << "a name falls back";
    EXPECT_EQ(Doctor(Configuration({"unowned"})).exitCode, 0);

    const std::string json = Doctor(Configuration({"always_ok", "conf_sip_ft"}), {"--json"}).output;
    EXPECT_TRUE(Holds(json, R"("ownership":{"items":[{"item":"always_ok","isConfigured":true,"owners":)"
                            R"([{"process":"test_owner","timeLimitMs":35000}]},)"
                            R"({"item":"conf_sip_ft","isConfigured":true,"owners":[]},)"
                            R"({"item":"always_critical","isConfigured":false,"owners":[{"process":"test_owner",)"))
        << json;
    EXPECT_TRUE(json.ends_with("\"silent\":[]}}\n")) << json;
}

TEST_F(DoctorCommand, NamesTheOwnersOfTheBuiltInItemsWithoutAFile) {
    const Child owner({OMINSPECT_OWNER_PROGRAM, OWNER_FILE});
    ASSERT_TRUE(Eventually([&] { return Holds(Doctor("missing.xml").output, "owned by test_owner"); }));
    const Outcome outcome = Doctor("missing.xml");
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_EQ(CountOf(outcome.output, ": no process owns it\n"), 25U) << outcome.output;
}

TEST_F(DoctorCommand, NamesAnOwnerThatDoesNotAnswer) {
    const std::string file = Configuration({"always_ok"});
    const Child owner({OMINSPECT_OWNER_PROGRAM, OWNER_FILE});
    ASSERT_TRUE(EventuallyOwned(file, "item \"always_ok\": owned by test_owner\n"));
    owner.Signal(SIGSTOP);
    const Outcome outcome = Doctor(file);
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(Ownership(outcome),
              "item \"always_ok\": no process owns it\n"
              "ominspectctl: the process test_owner does not say which items it owns\n");
    EXPECT_TRUE(Holds(Doctor(file, {"--json"}).output, "\"silent\":[\"test_owner\"]}}\n"));
    owner.Signal(SIGCONT);
}

TEST_F(DoctorCommand, SaysThatThereIsNoBusInOneLine) {
    const std::string address = "unix:path=" + Folder() + "/no_bus";
    const auto without = [&](const std::string& file, const std::vector<std::string>& more = {}) {
        std::vector<std::string> arguments{"doctor", "--config", file};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return support::Run(CommandLine(arguments), {"KIVO_BUS_ADDRESS=" + address});
    };
    const std::string why = "bus unreachable at " + address + ": No such file or directory";
    const Outcome good = without(Configuration({"always_ok"}));
    EXPECT_EQ(good.exitCode, 0);
    EXPECT_EQ(Ownership(good), "ominspectctl: " + why + "\n");
    EXPECT_EQ(without(Configuration({kTooLong})).exitCode, 1);
    EXPECT_EQ(without("missing.xml").exitCode, 2);
    const Outcome json = without(Configuration({"always_ok"}), {"--json"});
    EXPECT_TRUE(Holds(json.output, R"("ownership":{"error":{"code":"bus-unreachable","text":")" + why + "\"}}}\n"))
        << json.output;
}

// The whole look at an installation, on a bus without a policy.
class DoctorLooksAround : public DoctorCommand {
protected:
    using DoctorCommand::DoctorCommand;

    // The line of the first finding about this.
    static std::string About(const std::string& subject, const Outcome& outcome) {
        const size_t at = outcome.output.find("  " + subject + ' ');
        const size_t begin = outcome.output.rfind('\n', at) + 1;
        return at == std::string::npos ? outcome.output
                                       : outcome.output.substr(begin, outcome.output.find('\n', at) - begin);
    }

    static std::string Me() { return getpwuid(geteuid())->pw_name; }

    Outcome Look() const { return support::Run(CommandLine({"doctor"}), {"KIVO_LOG_DIR=" + Folder()}); }
};

TEST_F(DoctorLooksAround, NamesServerOwnersAndFolders) {
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    const Outcome outcome = Look();
    EXPECT_EQ(outcome.exitCode, 1) << "there is no policy";
    EXPECT_TRUE(About("bus", outcome).starts_with("ok       bus            unix:")) << outcome.output;
    EXPECT_TRUE(Holds(About("rights", outcome), " may ask")) << outcome.output;
    EXPECT_TRUE(Holds(About("policy", outcome), "warning  policy         none: whoever reaches this bus"))
        << outcome.output;
    EXPECT_TRUE(Holds(About("server", outcome), ", process " + std::to_string(server.Pid()) + ", user " + Me()))
        << outcome.output;
    EXPECT_TRUE(About("server", outcome).starts_with("ok       server         ominspect 0.1.0, ")) << outcome.output;
    EXPECT_TRUE(Holds(About("owners", outcome), "ok       owners         test_owner (5 items)")) << outcome.output;
    EXPECT_TRUE(Holds(About("items", outcome), "without an owner (25): bsp_mainboard_ft, ")) << outcome.output;
    EXPECT_TRUE(About("log", outcome).starts_with("ok       log            " + Folder() + ": ")) << outcome.output;
}

TEST_F(DoctorLooksAround, TellsOfAServerThatIsAbsentAndOfOneThatDoesNotAnswer) {
    Child server = StartServer();
    const Child owner = StartShippedOwner();
    server.Signal(SIGSTOP);
    const Outcome hung = Look();
    EXPECT_TRUE(Holds(About("server", hung), "warning  server         ominspect of an unknown version, process "))
        << hung.output;
    EXPECT_TRUE(Holds(About("server", hung), ", does not answer")) << hung.output;
    EXPECT_TRUE(About("policy", hung).starts_with("unknown ")) << hung.output;
    EXPECT_TRUE(Holds(About("owners", hung), "no answer from ominspect")) << hung.output;
    server.Signal(SIGCONT);
    server.Signal(SIGTERM);
    EXPECT_EQ(server.Wait(), 0);
    const Outcome absent = Look();
    EXPECT_TRUE(Holds(About("server", absent), "failure  server         absent: no process \"ominspect\" on this bus"))
        << absent.output;
    EXPECT_TRUE(Holds(About("owners", absent), "test_owner (5 items)")) << absent.output;
}

// The rules of a bus that lets everybody do everything, but for what the shipped policy allows nobody.
class GuardedBus {
protected:
    GuardedBus() {
        WriteFile(config_, R"(<busconfig><type>session</type><keep_umask/><listen>unix:tmpdir=/tmp</listen>
<auth>EXTERNAL</auth><policy context="default"><allow user="*"/><allow own="*"/><allow send_destination="*"/>
<allow receive_sender="*"/><deny send_destination="com.kivo.proc.ominspect" send_path="/com/kivo/policy"/></policy>
</busconfig>)");
    }

    const TempFolder folder_;
    const std::string config_ = folder_ / "bus.conf";
};

class DoctorOnAGuardedBus : GuardedBus, public DoctorLooksAround {
protected:
    DoctorOnAGuardedBus() : DoctorLooksAround(config_) {}
};

TEST_F(DoctorOnAGuardedBus, SeesThatThePolicyIsInForce) {
    const Child server = StartServer();
    const Outcome outcome = Look();
    EXPECT_EQ(About("policy", outcome), "ok       policy         in force") << outcome.output;
}

}  // namespace
}  // namespace support
