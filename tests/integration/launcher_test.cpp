// The end of the server's process.
#include <csignal>
#include <cstdlib>

#include "support/raw_connection.h"
#include "system.h"

namespace support {

namespace {

class LauncherTest : public System {};

TEST_F(LauncherTest, TheServerShowsItsVersionOnTheBus) {
    const Child server = StartServer();
    const RawConnection connection;
    char* version = nullptr;
    ASSERT_GE(sd_bus_get_property_string(connection.Get(), "com.kivo.proc.ominspect", "/com/kivo/process",
                                         "com.kivo.Msg.Process", "Version", nullptr, &version),
              0);
    EXPECT_STREQ(version, "0.1.0");
    std::free(version);
}

TEST_F(LauncherTest, ARequestEndsTheServer) {
    Child server = StartServer();
    server.Signal(SIGTERM);
    EXPECT_EQ(server.Wait(), 0) << server.Output();
}

// The server's task polls for the result of a synchronous run without any limit, under the empty name.
TEST_F(LauncherTest, AServerThatWaitsForEverIsEndedAllTheSame) {
    Child server = StartServer();
    const Child owner = StartOwner("owner1", {"@until"});
    Post(0, R"({"name":"","cmd":"run"})", "ominspect", "iom_srv_task");
    ASSERT_TRUE(EventuallyEvents({"busy", " running/begin"}));
    // A server that is to end asks nobody any more, and ends.
    ASSERT_TRUE(owner.EventuallyWrote("asked")) << owner.Output();
    server.Signal(SIGTERM);
    EXPECT_EQ(server.Wait(), 4);
    EXPECT_TRUE(server.Output().ends_with("ominspect: the server does not end; it is ended where it is\n"))
        << server.Output();
}

}  // namespace

}  // namespace support
