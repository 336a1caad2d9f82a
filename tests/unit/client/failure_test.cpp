// What the client library says of failures of the bus, code by code.
#include "failure.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include <unistd.h>

#include "kivo/os_msg.h"

using namespace ominspect::client;

namespace {

constexpr const char* kAddress = "unix:path=/nonexistent/bus";

class Failure : public testing::Test {
protected:
    Failure() { setenv("KIVO_BUS_ADDRESS", kAddress, 1); }
    ~Failure() override { unsetenv("KIVO_BUS_ADDRESS"); }

    static std::string Shown(const Error& error) { return std::string(ErrorWord(error.code)) + " | " + error.text; }
    static std::string Sent(std::uint32_t code) { return Shown(SendError(code)); }
    static std::string Joined(std::uint32_t code) { return Shown(JoinError(code, "me")); }
};

TEST_F(Failure, OfAMessageNamesServerAndAddress) {
    EXPECT_EQ(Sent(0x80020008),
              "server-absent | server absent: no process \"ominspect\" on the bus at unix:path=/nonexistent/bus");
    EXPECT_EQ(
        Sent(0x80020009),
        "server-absent | server absent: the process \"ominspect\" on the bus at unix:path=/nonexistent/bus has no "
        "task \"iom_srv_task\"");
    EXPECT_EQ(Sent(0x8002000a),
              "server-absent | server absent: the process \"ominspect\" left the bus at unix:path=/nonexistent/bus "
              "while it was asked");
    EXPECT_EQ(Shown(RestartError()), "server-absent | server absent: it restarted and forgot the run");
}

TEST_F(Failure, OfALostBusNamesTheAddress) {
    const std::string lost = "bus-unreachable | bus unreachable at unix:path=/nonexistent/bus: the connection was lost";
    EXPECT_EQ(Sent(0x80020004), lost);
    EXPECT_EQ(Sent(0x80020007), lost);
    EXPECT_EQ(Shown(BusLostError()), lost);
}

TEST_F(Failure, OfOtherKindsHasThePlatformsWords) {
    EXPECT_EQ(Sent(0x80020002), std::string("invalid-argument | ") + OsMsgResultText(0x80020002));
    EXPECT_EQ(Sent(0x8002000b), std::string("time-limit | ") + OsMsgResultText(0x8002000b));
    EXPECT_EQ(Sent(0x8002000c), std::string("refused | ") + OsMsgResultText(0x8002000c));
    EXPECT_EQ(Sent(0x80020010), std::string("internal | ") + OsMsgResultText(0x80020010));
    EXPECT_EQ(Joined(0x80020003), std::string("internal | ") + OsMsgResultText(0x80020003));
}

TEST_F(Failure, ToJoinNamesTheReason) {
    ASSERT_EQ(OsProcAttach("me"), 0x80020007U);
    EXPECT_EQ(Joined(0x80020007),
              "bus-unreachable | bus unreachable at unix:path=/nonexistent/bus: No such file or directory");
    setenv("KIVO_BUS_ADDRESS", "nonsense", 1);
    ASSERT_EQ(OsProcAttach("me"), 0x80020007U);
    EXPECT_EQ(Joined(0x80020007), "bus-unreachable | bus unreachable at nonsense: Connection refused");
    ASSERT_EQ(OsProcAttach(""), 0x80020002U);
    EXPECT_EQ(Joined(0x80020002), "invalid-argument | the process name \"me\" is not of 1 to 15 bytes of UTF-8");
}

TEST_F(Failure, ToJoinNamesTheNameThatIsTaken) {
    EXPECT_EQ(Joined(0x80020006), "already-open | another process is \"me\" on the bus at unix:path=/nonexistent/bus");
    EXPECT_EQ(Joined(0x80020005), std::string("already-open | ") + OsMsgResultText(0x80020005));
}

TEST_F(Failure, OfThePolicyNamesUserAndGroup) {
    const std::string user = geteuid() == 0 ? "\"root\" (0)" : "(" + std::to_string(geteuid()) + ")";
    const std::string sent = Sent(0x8002000e);
    EXPECT_EQ(sent.find("denied | access denied: the bus at unix:path=/nonexistent/bus does not let user "), 0U)
        << sent;
    EXPECT_NE(
        sent.find(user +
                  " speak to the process \"ominspect\"; add the user to the group \"ominspect\" and log in again"),
        std::string::npos)
        << sent;
    const std::string owners =
        " join as the process \"me\"; add the user to the group \"ominspect-owner\" and log in again";
    EXPECT_NE(Joined(0x8002000e).find(user + owners), std::string::npos);
}

}  // namespace
