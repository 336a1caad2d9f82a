// What doctor knows of the owners of a configuration's items, beside what the unit tests say of the file.
#include <csignal>

#include "programs.h"

namespace support {
namespace {

constexpr const char* kTooLong = "12345678901234567890123456789012";

class DoctorCommand : public Programs {
protected:
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

}  // namespace
}  // namespace support
