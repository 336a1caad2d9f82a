// A hostile connection that speaks D-Bus itself: it must not pass for another process.
#include <systemd/sd-bus.h>

#include <algorithm>
#include <sstream>
#include <vector>

#include "support/raw_connection.h"
#include "system.h"

namespace support {
namespace {

constexpr const char* kDaemon = "org.freedesktop.DBus";

class Forgery : public System {
protected:
    // Tells this program, in the daemon's words, that a name has changed hands.
    void Forge(const char* name, const std::string& from, const std::string& to) const {
        sd_bus_message* signal = nullptr;
        ASSERT_GE(
            sd_bus_message_new_signal(hostile_.Get(), &signal, "/org/freedesktop/DBus", kDaemon, "NameOwnerChanged"),
            0);
        const RawMessage message(signal);
        ASSERT_GE(sd_bus_message_append(signal, "sss", name, from.c_str(), to.c_str()), 0);
        ASSERT_GE(sd_bus_message_set_destination(signal, hostile_.OwnerOf("com.kivo.proc.itest").c_str()), 0);
        ASSERT_GE(sd_bus_send(hostile_.Get(), signal, nullptr), 0);
    }

    // The process name under which a message of the hostile connection arrives here.
    [[nodiscard]] std::string SeenAs() const {
        hostile_.Post("itest", "itest", 77);
        return AwaitSender(77);
    }

    RawConnection hostile_;
};

TEST_F(Forgery, AConnectionWithoutAProcessNameHasNone) {
    EXPECT_EQ(SeenAs(), "");
}

TEST_F(Forgery, ItsProperNameIsSeen) {
    hostile_.Take("com.kivo.proc.honest");
    EXPECT_EQ(SeenAs(), "honest");
}

TEST_F(Forgery, AProcessThatGivesUpOneOfItsNamesKeepsTheOther) {
    hostile_.Take("com.kivo.proc.first");
    hostile_.Take("com.kivo.proc.second");
    EXPECT_EQ(SeenAs(), "first");
    hostile_.GiveUp("com.kivo.proc.first");
    EXPECT_EQ(SeenAs(), "second");
    hostile_.GiveUp("com.kivo.proc.second");
    EXPECT_EQ(SeenAs(), "");
}

TEST_F(Forgery, ASignalInTheNameOfTheDaemonGivesNoName) {
    Forge("com.kivo.proc.ominspect", "", hostile_.Name());
    EXPECT_EQ(SeenAs(), "");
}

TEST_F(Forgery, ASignalInTheNameOfTheDaemonTakesNoName) {
    hostile_.Take("com.kivo.proc.honest");
    EXPECT_EQ(SeenAs(), "honest");
    Forge("com.kivo.proc.honest", hostile_.Name(), "");
    EXPECT_EQ(SeenAs(), "honest");
}

TEST_F(Forgery, ANameEscapedInAnotherWayIsNoProcessName) {
    hostile_.Take("com.kivo.proc._6fminspect");
    EXPECT_EQ(SeenAs(), "");
    hostile_.Take("com.kivo.proc.ominspect_00x");
    EXPECT_EQ(SeenAs(), "");
    hostile_.Take("com.kivo.proc.om_5Finspect");
    EXPECT_EQ(SeenAs(), "");
}

TEST_F(Forgery, DescriptorsAreNotTaken) {
    sd_bus_message* call = nullptr;
    ASSERT_GE(sd_bus_message_new_method_call(hostile_.Get(), &call, "com.kivo.proc.itest", "/com/kivo/task/itest",
                                             "com.kivo.Msg", "Send"),
              0);
    const RawMessage message(call);
    ASSERT_GE(sd_bus_message_append(call, "hh", 0, 1), 0);
    EXPECT_LT(sd_bus_call(hostile_.Get(), call, 60'000'000, nullptr, nullptr), 0);
    EXPECT_EQ(SeenAs(), "");  // the connection goes on
}

// The operations log tells who registered an item and who reported a result: the process of the connection, whatever
// the message says.
TEST_F(Forgery, TheLogNamesTheSenderOfARegistrationAndOfAResult) {
    const Child server = StartServer();
    hostile_.Take("com.kivo.proc.rogue");
    const auto post = [this](uint32_t id, const std::string& payload) {
        sd_bus_message* call = nullptr;
        ASSERT_GE(sd_bus_message_new_method_call(hostile_.Get(), &call, "com.kivo.proc.ominspect",
                                                 "/com/kivo/task/iom_5fsrv_5ftask", "com.kivo.Msg", "Send"),
                  0);
        const RawMessage message(call);
        ASSERT_GE(sd_bus_message_append(call, "uuss", id, 0, "honest_task", "honest_task"), 0);
        ASSERT_GE(sd_bus_message_append_array(call, 'y', payload.data(), payload.size()), 0);
        ASSERT_GE(sd_bus_message_set_expect_reply(call, 0), 0);
        ASSERT_GE(sd_bus_send(hostile_.Get(), call, nullptr), 0);
    };
    std::string result = "stolen";
    result.resize(192);
    post(2, std::string("stolen", 7));
    post(5, result);
    ASSERT_TRUE(Eventually([this] { return ServerLog().find("now send result to [stolen]") != std::string::npos; }));

    // The texts of the lines, from the registration on.
    std::vector<std::string> texts;
    std::istringstream log(ServerLog());
    for (std::string line; std::getline(log, line);) {
        std::istringstream words(line);
        std::string head;
        for (int i = 0; i < 6; ++i) {
            words >> head;
        }
        texts.push_back(line.substr(line.find(head) + head.size() + 1));
    }
    const auto begin = std::find(texts.begin(), texts.end(), "add inspection in result: [stolen] ");
    ASSERT_NE(begin, texts.begin());
    ASSERT_GE(texts.end() - begin, 5);
    EXPECT_EQ(begin[-1], "inspect server recv msg id 2 from [rogue:honest_task]");
    EXPECT_EQ(begin[2], "add inspection in pipeline: [stolen] from [rogue:honest_task] ");
    EXPECT_EQ(begin[3], "inspect server recv msg id 5 from [rogue:honest_task]");
    EXPECT_EQ(begin[4], "now send result to [stolen]");
}

}  // namespace
}  // namespace support
