// A user whom the shipped bus policy keeps out, on a bus with the rules of the system bus: what the library tells him.
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "ominspect/client/session.h"
#include "support/child.h"
#include "support/eventually.h"
#include "support/forked.h"
#include "support/private_bus.h"
#include "support/temp_folder.h"

namespace support {
namespace {

using namespace ominspect::client;

constexpr std::chrono::seconds kEnough{60};

// The rules of a system bus, those of this system, and more.
std::string BusConfig(const std::string& more) {
    return R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <keep_umask/>
  <listen>unix:tmpdir=/tmp</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <deny own="*"/>
    <deny send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow receive_type="signal"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus"/>
  </policy>
  <include>)" BUS_POLICY "</include>\n" +
           more + "</busconfig>\n";
}

class ClientAccess : public testing::Test {
protected:
    const PrivateBus& StartBus(const std::string& more = "") {
        const std::string file = (folder_.Path() / "bus.conf").string();
        std::ofstream(file) << BusConfig(more);
        bus_.emplace(file);
        return *bus_;
    }

    // What another user than root gets as the failure of `ask`, as "word: text".
    template <typename Function>
    static std::string FailureOfNobody(Function ask) {
        const auto lines = InForkedChild([&ask]() -> std::vector<std::string> {
            BecomeNobody();
            const auto error = ask();
            return {error ? std::string(ErrorWord(error->code)) + ": " + error->text : "no error"};
        });
        return lines.empty() ? "nothing" : lines.front();
    }

    WorkingFolder folder_;
    std::optional<PrivateBus> bus_;
};

bool Holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST_F(ClientAccess, AUserOutsideTheGroupIsToldSoWhenHeJoins) {
    const std::string address = StartBus().Address();
    const std::string failure = FailureOfNobody([]() -> std::optional<Error> {
        const auto session = Session::Open({}, "outsider");
        return session ? std::nullopt : std::optional(session.Failure());
    });
    EXPECT_TRUE(failure.starts_with("denied: access denied: the bus at " + address + " does not let user ")) << failure;
    EXPECT_TRUE(Holds(
        failure, R"( join as the process "outsider"; add the user to the group "ominspect-owner" and log in again)"))
        << failure;
}

TEST_F(ClientAccess, AUserWhoMayJoinButNotSpeakToTheServerIsToldSo) {
    const std::string address =
        StartBus(R"(<policy context="mandatory"><allow own_prefix="com.kivo.proc"/></policy>)").Address();
    const Child server({LOSING_SERVER_PROGRAM, "0"});
    const std::string failure = FailureOfNobody([]() -> std::optional<Error> {
        const auto session = Session::Open({}, "guest");
        if (!session) {
            return session.Failure();
        }
        std::optional<Error> error;
        Eventually([&] {
            const auto run = (*session)->Start({"item", ""}, kEnough);
            error = run ? std::nullopt : std::optional(run.Failure());
            return !error || error->code != ErrorCode::kServerAbsent;
        });
        return error;
    });
    EXPECT_TRUE(failure.starts_with("denied: access denied: the bus at " + address + " does not let user ")) << failure;
    EXPECT_TRUE(Holds(failure, R"( speak to the process "ominspect"; add the user to the group "ominspect" and)"))
        << failure;
}

TEST_F(ClientAccess, ABusThatLetsNobodyElseInIsSaidToBeUnreachable) {
    bus_.emplace();
    const std::string failure = FailureOfNobody([]() -> std::optional<Error> {
        const auto session = Session::Open();
        return session ? std::nullopt : std::optional(session.Failure());
    });
    // A test that does not run as root cannot become another user: its own is let in.
    EXPECT_EQ(failure, geteuid() != 0 ? "no error"
                                      : "bus-unreachable: bus unreachable at " + bus_->Address() +
                                            ": it closed the connection, as a bus does when it does not let a user in");
}

}  // namespace
}  // namespace support
