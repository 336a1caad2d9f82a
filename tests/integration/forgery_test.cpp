// A hostile connection that speaks D-Bus itself: it must not pass for another process.
#include <systemd/sd-bus.h>

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

}  // namespace
}  // namespace support
