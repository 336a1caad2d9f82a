// A hostile connection that speaks D-Bus itself: it must not pass for another process.
#include <systemd/sd-bus.h>

#include <cstdlib>
#include <memory>

#include "system.h"

namespace support {
namespace {

constexpr const char* kDaemon = "org.freedesktop.DBus";
constexpr const char* kDaemonPath = "/org/freedesktop/DBus";

struct Close {
    void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Connection = std::unique_ptr<sd_bus, Close>;
using Message = std::unique_ptr<sd_bus_message, Close>;

class Forgery : public System {
protected:
    Forgery() : hostile_(Connect()) {}

    static Connection Connect() {
        sd_bus* bus = nullptr;
        EXPECT_GE(sd_bus_new(&bus), 0);
        EXPECT_GE(sd_bus_set_address(bus, std::getenv("KIVO_BUS_ADDRESS")), 0);
        EXPECT_GE(sd_bus_set_bus_client(bus, 1), 0);
        EXPECT_GE(sd_bus_start(bus), 0);
        return Connection(bus);
    }

    [[nodiscard]] std::string OwnAddress() const {
        const char* name = nullptr;
        EXPECT_GE(sd_bus_get_unique_name(hostile_.get(), &name), 0);
        return name;
    }

    // The connection that this program has on the bus.
    [[nodiscard]] std::string VictimAddress() const {
        sd_bus_message* reply = nullptr;
        const char* owner = nullptr;
        EXPECT_GE(sd_bus_call_method(hostile_.get(), kDaemon, kDaemonPath, kDaemon, "GetNameOwner", nullptr, &reply,
                                     "s", "com.kivo.proc.itest"),
                  0);
        const Message answer(reply);
        EXPECT_GE(sd_bus_message_read(reply, "s", &owner), 0);
        return owner;
    }

    // Tells this program, in the daemon's words, that a name has changed hands.
    void Forge(const char* name, const std::string& from, const std::string& to) const {
        sd_bus_message* signal = nullptr;
        ASSERT_GE(sd_bus_message_new_signal(hostile_.get(), &signal, kDaemonPath, kDaemon, "NameOwnerChanged"), 0);
        const Message message(signal);
        ASSERT_GE(sd_bus_message_append(signal, "sss", name, from.c_str(), to.c_str()), 0);
        ASSERT_GE(sd_bus_message_set_destination(signal, VictimAddress().c_str()), 0);
        ASSERT_GE(sd_bus_send(hostile_.get(), signal, nullptr), 0);
    }

    // The process name under which a message of the hostile connection arrives here.
    [[nodiscard]] std::string SeenAs() const {
        sd_bus_message* call = nullptr;
        EXPECT_GE(sd_bus_message_new_method_call(hostile_.get(), &call, "com.kivo.proc.itest", "/com/kivo/task/itest",
                                                 "com.kivo.Msg", "Send"),
                  0);
        const Message message(call);
        EXPECT_GE(sd_bus_message_append(call, "uuss", 77, 0, "", ""), 0);
        EXPECT_GE(sd_bus_message_append_array(call, 'y', "x", 1), 0);
        EXPECT_GE(sd_bus_message_set_expect_reply(call, 0), 0);
        EXPECT_GE(sd_bus_send(hostile_.get(), call, nullptr), 0);
        EXPECT_GE(sd_bus_flush(hostile_.get()), 0);
        return AwaitSender(77);
    }

    Connection hostile_;
};

TEST_F(Forgery, AConnectionWithoutAProcessNameHasNone) {
    EXPECT_EQ(SeenAs(), "");
}

TEST_F(Forgery, ItsProperNameIsSeen) {
    ASSERT_GE(sd_bus_request_name(hostile_.get(), "com.kivo.proc.honest", 0), 0);
    EXPECT_EQ(SeenAs(), "honest");
}

TEST_F(Forgery, AForgedWordOfTheDaemonGivesNoName) {
    Forge("com.kivo.proc.ominspect", "", OwnAddress());
    EXPECT_EQ(SeenAs(), "");
}

TEST_F(Forgery, AForgedWordOfTheDaemonTakesNoName) {
    ASSERT_GE(sd_bus_request_name(hostile_.get(), "com.kivo.proc.honest", 0), 0);
    EXPECT_EQ(SeenAs(), "honest");
    Forge("com.kivo.proc.honest", OwnAddress(), "");
    EXPECT_EQ(SeenAs(), "honest");
}

TEST_F(Forgery, ANameEscapedInAnotherWayIsNoProcessName) {
    ASSERT_GE(sd_bus_request_name(hostile_.get(), "com.kivo.proc._6fminspect", 0), 0);
    EXPECT_EQ(SeenAs(), "");
    ASSERT_GE(sd_bus_request_name(hostile_.get(), "com.kivo.proc.ominspect_00x", 0), 0);
    EXPECT_EQ(SeenAs(), "");
    ASSERT_GE(sd_bus_request_name(hostile_.get(), "com.kivo.proc.om_5Finspect", 0), 0);
    EXPECT_EQ(SeenAs(), "");
}

TEST_F(Forgery, DescriptorsAreNotTaken) {
    sd_bus_message* call = nullptr;
    ASSERT_GE(sd_bus_message_new_method_call(hostile_.get(), &call, "com.kivo.proc.itest", "/com/kivo/task/itest",
                                             "com.kivo.Msg", "Send"),
              0);
    const Message message(call);
    ASSERT_GE(sd_bus_message_append(call, "hh", 0, 1), 0);
    EXPECT_LT(sd_bus_call(hostile_.get(), call, 60'000'000, nullptr, nullptr), 0);
    EXPECT_EQ(SeenAs(), "");  // the connection goes on
}

}  // namespace
}  // namespace support
