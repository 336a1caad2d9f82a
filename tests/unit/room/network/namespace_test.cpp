// Links for real: two network namespaces with a cable between them.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include "dns_server.h"
#include "support/child.h"
#include "support/eventually.h"
#include "support/own_root.h"
#include "support/temp_folder.h"

namespace {

class Namespaces : public testing::Test {
protected:
    static void SetUpTestSuite() { support::BecomeOwnRoot(); }

    void SetUp() override {
        // The names of namespaces are kept in /run.
        ASSERT_EQ(unshare(CLONE_NEWNS), 0) << std::strerror(errno);
        ASSERT_EQ(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0) << std::strerror(errno);
        ASSERT_EQ(mount("tmpfs", "/run", "tmpfs", 0, nullptr), 0) << std::strerror(errno);
        for (const std::string& name : {near_, far_}) {
            Ip({"netns", "add", name});
        }
        // No two tests share a name.
        Ip({"-n", near_, "link", "add", "room0", "type", "veth", "peer", "name", "far0", "netns", far_});
        Near("sysctl -q net.ipv4.ping_group_range='0 0'");
    }
    void TearDown() override {
        for (const std::string& name : {near_, far_}) {
            (void)support::Run({"ip", "netns", "del", name});
        }
    }

    static void Ip(std::vector<std::string> words) {
        words.insert(words.begin(), "ip");
        const support::Outcome done = support::Run(words);
        EXPECT_EQ(done.exitCode, 0) << words[2] << ": " << done.output;
    }
    static void In(const std::string& name, const std::string& script) {
        Ip({"netns", "exec", name, "sh", "-c", script});
    }
    void Near(const std::string& script) const { In(near_, script); }
    void Far(const std::string& script) const { In(far_, script); }

    // Both ends are up and have addresses; the far one is the gateway.
    void Connect() const {
        Far("ip link set far0 up; ip addr add 10.99.0.1/24 dev far0");
        Near("ip link set room0 up; ip addr add 10.99.0.2/24 dev room0; ip route add default via 10.99.0.1");
    }

    // The item's line, as it is looked at in the near namespace.
    std::string Look(const std::string& item, const std::string& nameServer = "10.99.0.1",
                     const std::string& attributes = "") const {
        support::WriteFile(folder_ / "etc/resolv.conf", "nameserver " + nameServer + "\n");
        support::WriteFile(folder_ / "room.xml",
                           "<Room><Network wired=\"room0\" clock=\"any\" " + attributes + "/></Room>");
        const support::Outcome said =
            support::Run({"ip", "netns", "exec", near_, ROOM_CHECK_PROGRAM, "--config", folder_ / "room.xml", "--root",
                          folder_.Path().string(), "--answer", item});
        return std::to_string(said.exitCode) + ": " + said.output;
    }

    // A name server in the far namespace.
    std::unique_ptr<support::DnsServer> StartNameServer() const {
        std::unique_ptr<support::DnsServer> server;
        std::thread([&] {
            const ominspect::UniqueFd far(open(("/run/netns/" + far_).c_str(), O_RDONLY | O_CLOEXEC));
            ASSERT_EQ(setns(far.Get(), CLONE_NEWNET), 0);
            server = std::make_unique<support::DnsServer>(
                [](const support::DnsServer::Datagram& question) {
                    return std::vector<support::DnsServer::Datagram>{support::DnsServer::Answer(question, 0, 1)};
                },
                "10.99.0.1", 53);
        }).join();
        return server;
    }

    const std::string near_ = "room-near-" + std::to_string(getpid());
    const std::string far_ = "room-far-" + std::to_string(getpid());
    support::TempFolder folder_;
};

constexpr const char* kWired = "devm_wired_connect_ft";

TEST_F(Namespaces, ALinkThatComesUpStepByStep) {
    EXPECT_EQ(Look(kWired), "2: room0 is switched off; switch it on (ip link set room0 up)\n");
    Near("ip link set room0 up");
    EXPECT_EQ(Look(kWired), "2: room0: no carrier; check the cable and the switch\n");
    EXPECT_EQ(Look("devm_lan_mode_ft"), "2: room0: no carrier; check the cable and the switch\n");
    Far("ip link set far0 up");
    EXPECT_TRUE(
        support::Eventually([&] { return Look(kWired) == "2: room0 has a carrier, but no address; check DHCP\n"; }));
    Near("ip addr add 169.254.7.7/16 dev room0");
    EXPECT_EQ(Look(kWired), "2: room0 has a carrier, but no address; check DHCP\n");
    Connect();
    const auto server = StartNameServer();
    EXPECT_EQ(Look(kWired), "0: room0 has 10.99.0.2; gateway 10.99.0.1 answers; name server answers\n");
    EXPECT_EQ(Look("devm_lan_mode_ft"), "0: room0: 10000 Mbit/s full duplex\n");
    EXPECT_EQ(Look("devm_lan_mode_ft", "", "speed=\"1000\""),
              "2: room0: 10000 Mbit/s full duplex, expected 1000 Mbit/s; check the cable and the switch's port\n");
    EXPECT_EQ(Look("devm_connect_ap_ft"), "3: this machine has no wireless interface\n");
    Near("ip route del default");
    EXPECT_EQ(Look(kWired), "1: room0 has no gateway: nothing beyond its network is reachable; check DHCP\n");
}

TEST_F(Namespaces, AGatewayThatLosesEchoesAndOneThatIsGone) {
    Connect();
    const auto server = StartNameServer();
    // Echoes are answered at a rate that leaves some of the first look, and none of the next.
    Far("sysctl -q net.ipv4.icmp_ratemask=1 net.ipv4.icmp_ratelimit=50000");
    bool lossy = false;
    bool silent = false;
    EXPECT_TRUE(support::Eventually([&] {
        const std::string said = Look(kWired);
        lossy = lossy || (said.starts_with("1: gateway 10.99.0.1 answers ") && said.find(" of 5 times") != said.npos);
        silent = said == "0: room0 has 10.99.0.2; gateway 10.99.0.1 is there; name server answers\n";
        return silent;
    }));
    EXPECT_TRUE(lossy);
    Near("ip route replace default via 10.99.0.77");
    EXPECT_EQ(Look(kWired), "2: gateway 10.99.0.77 does not answer; check the switch and the router\n");
}

TEST_F(Namespaces, ANameServerThatIsSilent) {
    Connect();
    EXPECT_EQ(Look(kWired), "2: name server 10.99.0.1 does not answer; check it, or use another\n");
    EXPECT_EQ(Look(kWired, "10.99.0.88"), "2: name server 10.99.0.88 does not answer; check it, or use another\n");
}

}  // namespace
