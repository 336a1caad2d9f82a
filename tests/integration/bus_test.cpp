// What processes may do to each other on the bus: names, claims, restarts, crowds and malformed payloads.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include "support/eventually.h"
#include "support/process_state.h"
#include "system.h"

namespace support {
namespace {

class OnTheBus : public System {};

TEST_F(OnTheBus, TheServerComesBackUnderItsOwnersAndClients) {
    Child server = StartServer();
    const Child owner(
        {OMINSPECT_OWNER_PROGRAM, OWNER_FILE});  // registers through the engine client, which follows the server
    EXPECT_TRUE(EventuallyText("always_ok", "fine"));
    server.Kill();
    EXPECT_EQ(Send(7, "always_ok").code, 0x80020008u);  // absent, and told so at once
    const Child again = StartServer();
    EXPECT_TRUE(EventuallyText("always_ok", "fine"));
}

TEST_F(OnTheBus, ASecondServerIsRefusedAndTheFirstGoesOn) {
    const Child server = StartServer();
    Child second({OMINSPECT_PROGRAM});
    EXPECT_EQ(second.Wait(), 3);
    EXPECT_NE(second.Output().find("the name is taken"), std::string::npos) << second.Output();
    EXPECT_EQ(Text(RunItem("x")), "x fail/no support");
}

TEST_F(OnTheBus, TheServerSaysPlainlyThatThereIsNoBus) {
    Child server({OMINSPECT_PROGRAM}, {"KIVO_BUS_ADDRESS=unix:path=/nonexistent/bus"});
    EXPECT_EQ(server.Wait(), 3);
    EXPECT_NE(server.Output().find("the bus cannot be reached"), std::string::npos) << server.Output();
}

TEST_F(OnTheBus, AClaimedProcessNameIsNotBelieved) {
    const Child server = StartServer();
    const Child honest = StartOwner("honest", {"ok"});
    // Its registration claims to come from "honest"; the server asks the process that really sent it.
    const Child impostor = StartOwner("impostor", {"as*honest"});
    EXPECT_EQ(Text(RunItem("as*honest")), "as*honest success/answered by impostor");
}

TEST_F(OnTheBus, TheHostedFormServesTheSameMessages) {
    Child server({OMINSPECT_PROGRAM, "--hosted"});
    EXPECT_TRUE(Eventually([] { return Send(7, "").data == std::vector<unsigned char>{2, 0, 0, 0}; }));
    const Child owner = StartOwner("owner1", {"ok"});
    EXPECT_EQ(Text(RunItem("ok")), "ok success/answered by owner1");
    server.Signal(SIGTERM);
    EXPECT_EQ(server.Wait(), 0) << server.Output();
}

// The server prints a line for messages that it loses, of which nobody reads anything here.
class Unread : public System, public testing::WithParamInterface<const char*> {
protected:
    // Runs the server with its output in a pipe; the reader goes away once it serves messages.
    Child StartUnread() {
        const std::string pipe = Folder() + "/output";
        EXPECT_EQ(mkfifo(pipe.c_str(), 0600), 0);
        const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        Child server({"sh", "-c", R"(exec "$0" $1 --library "$2" >"$3" 2>&1)", OMINSPECT_PROGRAM, GetParam(),
                      OMINSPECT_TEST_LIBRARY, pipe},
                     {"KIVO_LOG_DIR=" + Folder()});
        EXPECT_TRUE(Eventually([] { return Send(7, "").code == 0; }));
        close(reader);
        return server;
    }
};

TEST_P(Unread, TheServerGoesOnWithoutSigpipe) {
    Child server = StartUnread();
    const Child owner = StartOwner("owner1", {"never", "ok"});
    Post(0, R"({"name":"never","cmd":"run"})", "ominspect", "iom_srv_task");
    for (int i = 0; i < 600; ++i) {
        Post(9999, "", "ominspect", "iom_srv_task");
    }
    EXPECT_EQ(Send(7, "").code, 0x8002000cu);  // the queue is full
    EXPECT_TRUE(Eventually([] { return Send(7, "").code == 0; }));
    EXPECT_EQ(Text(RunItem("ok")), "ok success/answered by owner1");
    server.Signal(SIGTERM);
    EXPECT_EQ(server.Wait(), 0);
}

INSTANTIATE_TEST_SUITE_P(OnTheBus, Unread, testing::Values("", "--hosted"));

TEST_F(OnTheBus, CommandsOfTheServerGetTheUsualSigpipe) {
    const Child server = StartServer();
    constexpr unsigned long kSigpipe = 1UL << (SIGPIPE - 1);
    EXPECT_EQ(std::stoul(StatusLine(server.Pid(), "SigIgn"), nullptr, 16) & kSigpipe, 0U);
    EXPECT_NE(std::stoul(StatusLine(server.Pid(), "SigCgt"), nullptr, 16) & kSigpipe, 0U);
}

TEST_F(OnTheBus, AHostWithALogClientOfItsOwnGetsTheServersLog) {
    const Child server({OMINSPECT_PROGRAM, "--hosted"}, {"KIVO_LOG_DIR=" + Folder(), "LD_PRELOAD=" HOST_LOG});
    EXPECT_TRUE(Eventually([] { return Send(7, "").code == 0; }));
    EXPECT_NE(ServerLog().find(" info host inspect_server/18:"), std::string::npos) << ServerLog();
}

TEST_F(OnTheBus, TheServerEndsInOrderWhenAsked) {
    Child server = StartServer();
    server.Signal(SIGTERM);
    EXPECT_EQ(server.Wait(), 0) << server.Output();
    EXPECT_EQ(Send(7, "").code, 0x80020008u);
}

TEST_F(OnTheBus, WhoIsToldToEndDoesSoAlthoughTheBusDaemonHangs) {
    Child server = StartServer();
    Child owner({OMINSPECT_OWNER_PROGRAM, OWNER_FILE});
    EXPECT_TRUE(EventuallyText("always_ok", "fine"));
    Child requester({OMINSPECTCTL_PROGRAM, "watch"});
    bus_.Signal(SIGSTOP);
    for (Child* process : {&requester, &owner, &server}) {
        process->Signal(SIGTERM);
        EXPECT_TRUE(process->Wait(std::chrono::seconds(60))) << process->Output();
    }
    bus_.Signal(SIGCONT);
}

TEST_F(OnTheBus, TwoHundredClientsAtOnceAllGetTheirResult) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"ok"});
    std::vector<Child> clients;
    for (int i = 0; i < 200; ++i) {
        clients.emplace_back(std::vector<std::string>{OMINSPECTCTL_PROGRAM, "run", "ok"});
    }
    for (Child& client : clients) {
        EXPECT_EQ(client.Wait(), 0) << client.Output();
    }
}

TEST_F(OnTheBus, PayloadsThatAreNoRequestsGetTheStatedReplies) {
    const Child server = StartServer();
    const std::string unknown = " fail/no support";  // a request without a readable name asks for the empty one
    EXPECT_EQ(Send(0, "").data.size(), 0u);
    EXPECT_EQ(Text(Send(0, "not JSON").Result()), unknown);
    EXPECT_EQ(Text(Send(0, std::string("\0\0\0", 3)).Result()), unknown);
    EXPECT_EQ(Text(Send(0, std::string(R"({"name":"a","cmd":"b"})") + '\0' + "rest").Result()), "a fail/no support");
    EXPECT_EQ(Text(Send(0, R"({"name":5,"cmd":[]})").Result()), unknown);
    EXPECT_EQ(Text(Send(0, std::string(1000, '[')).Result()), unknown);
    const std::string frame = R"({"name":"","cmd":"run"})";
    std::string huge = frame;
    huge.insert(9, std::string((1u << 20) - frame.size(), 'n'));  // exactly 1 MiB
    EXPECT_EQ(Text(Send(0, huge).Result()), unknown);
    EXPECT_EQ(Send(0, huge + " ").code, 0x8002000du);  // larger than a payload may be
    EXPECT_EQ(Send(2, huge).data.size(), 0u);          // a name of 1 MiB is registered by nobody
    EXPECT_EQ(Send(7, std::string("x\0y", 3)).data, (std::vector<unsigned char>{1, 0, 0, 0}));
    EXPECT_EQ(Send(9999, "x").data.size(), 0u);
    EXPECT_EQ(Send(5, std::string(192, 'x')).data.size(), 0u);
    EXPECT_EQ(Text(RunItem("a")), "a fail/no support");
}

}  // namespace
}  // namespace support
