// The bus daemon is killed in the middle of everything: no process waits for what cannot come any more. Each ends with
// an error, and the service manager starts it anew.
#include <csignal>

#include "faults.h"

namespace support {
namespace {

class BusDeath : public Faults {};

TEST_F(BusDeath, EndsServerOwnersAndRequestersInTheMiddleOfTheirRuns) {
    Child server = StartServer();
    Child raw = StartOwner("owner1", {"later", "never", "ok"});
    Child shipped({OMINSPECT_OWNER_PROGRAM, OWNER_FILE});
    ASSERT_TRUE(EventuallyText("always_ok", "fine")) << shipped.Output();
    Start("later");  // without a limit
    EXPECT_EQ(AwaitResult(), "later running/answered by owner1");
    Child requester({OMINSPECTCTL_PROGRAM, "run", "never", "--timeout", "600"});
    Child watcher({OMINSPECTCTL_PROGRAM, "watch"});
    Send(19, RequestText("later") + '\0' + '\0');
    ASSERT_TRUE(
        Eventually([this] { return ServerLog().find("InspectSingle[{\"name\":\"never\"") != std::string::npos; }));
    Post(0, RequestText("never"), kServer, kServerTask);  // keeps the server's own thread
    bus_.Signal(SIGKILL);
    EXPECT_EQ(server.Wait(), 3) << server.Output();
    EXPECT_NE(server.Output().find("the connection to the bus is lost"), std::string::npos) << server.Output();
    EXPECT_EQ(raw.Wait(), 1);
    EXPECT_EQ(shipped.Wait(), 3) << shipped.Output();
    EXPECT_EQ(requester.Wait(), 3) << requester.Output();
    EXPECT_EQ(watcher.Wait(), 3) << watcher.Output();
    EXPECT_EQ(Send(7, "").code, 0x80020007U);  // this program, too, knows it at once
}

}  // namespace
}  // namespace support
