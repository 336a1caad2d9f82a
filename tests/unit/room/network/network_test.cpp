// The network as a scripted system shows it.
#include "network/network.h"

#include <gtest/gtest.h>

#include <map>

#include "machine.h"

namespace {

using namespace room;
using support::Said;

class Scripted : public NetworkProbe {
public:
    ominspect::Result<std::vector<Link>> Links() override { return links; }
    ominspect::Result<std::vector<WirelessLink>> WirelessLinks() override { return wireless; }
    ominspect::Result<LinkMode> Mode(const std::string& /*link*/) override { return mode; }
    ominspect::Result<Echoes> Ping(const std::string& /*address*/, int /*linkIndex*/) override { return echoes; }
    bool IsNeighbour(const std::string& /*address*/, int /*linkIndex*/) override { return neighbour; }
    std::vector<std::string> NameServers() override { return servers; }
    DnsAnswer AskNameServer(const std::string& server, const std::string& name) override {
        asked.push_back(server + " " + name);
        return answers.contains(server) ? answers[server] : DnsAnswer::Answered;
    }
    ClockState Clock() override { return clock; }

    ominspect::Result<std::vector<Link>> links{std::vector<Link>{{.name = "br0", .index = 1, .isVirtual = true},
                                                                 {.name = "wlan0", .index = 3},
                                                                 {.name = "eth0",
                                                                  .index = 2,
                                                                  .isUp = true,
                                                                  .hasCarrier = true,
                                                                  .addresses = {"192.0.2.7"},
                                                                  .gateway = "192.0.2.1"}}};
    ominspect::Result<std::vector<WirelessLink>> wireless{
        std::vector<WirelessLink>{{.name = "wlan0", .ssid = "Room 5", .signal = -61}}};
    ominspect::Result<LinkMode> mode{LinkMode{1000, LinkMode::Duplex::Full}};
    ominspect::Result<Echoes> echoes{Echoes{5, 5}};
    bool neighbour = false;
    std::vector<std::string> servers{"192.0.2.53"};
    std::map<std::string, DnsAnswer> answers;
    std::vector<std::string> asked;
    ClockState clock = ClockState::Synchronised;

    Link& Eth0() { return links->at(2); }
};

TEST(NetworkWired, AllIsWell) {
    Scripted system;
    EXPECT_EQ(Said(CheckWired({}, system)),
              "success: eth0 has 192.0.2.7; gateway 192.0.2.1 answers; name server answers; clock synchronised");
    EXPECT_EQ(system.asked, std::vector<std::string>{"192.0.2.53 "});
}

TEST(NetworkWired, WithoutAnInterface) {
    Scripted system;
    EXPECT_EQ(Said(CheckWired({.wired = "eth9"}, system)),
              "fail: eth9: no such interface; check the adapter, or its name in the room's file");
    system.links->pop_back();
    EXPECT_EQ(Said(CheckWired({}, system)), "unknown: this machine has no wired interface");
    EXPECT_EQ(Said(CheckWired({.wired = "br0"}, system)),
              "fail: br0 is switched off; switch it on (ip link set br0 up)");
    system.links = ominspect::OtherError("out of order");
    EXPECT_EQ(Said(CheckWired({}, system)), "unknown: the kernel does not list its interfaces: out of order");
}

TEST(NetworkWired, WhatStandsInTheWayIsSaidFirst) {
    Scripted system;
    system.Eth0().addresses.clear();
    EXPECT_EQ(Said(CheckWired({}, system)), "fail: eth0 has a carrier, but no address; check DHCP");
    system.Eth0().hasCarrier = false;
    EXPECT_EQ(Said(CheckWired({}, system)), "fail: eth0: no carrier; check the cable and the switch");
    system.Eth0().isUp = false;
    EXPECT_EQ(Said(CheckWired({}, system)), "fail: eth0 is switched off; switch it on (ip link set eth0 up)");
    EXPECT_TRUE(system.asked.empty());
}

TEST(NetworkWired, TheGateway) {
    Scripted system;
    system.echoes = Echoes{5, 4};
    EXPECT_EQ(Said(CheckWired({}, system)), "warn: gateway 192.0.2.1 answers 4 of 5 times; check cable and switch");
    system.echoes = Echoes{5, 0};
    EXPECT_EQ(Said(CheckWired({}, system)), "fail: gateway 192.0.2.1 does not answer; check the switch and the router");
    system.neighbour = true;
    EXPECT_TRUE(Said(CheckWired({}, system)).starts_with("success: eth0 has 192.0.2.7; gateway 192.0.2.1 is there"));
    system.echoes = ominspect::OtherError("not allowed");
    EXPECT_TRUE(Said(CheckWired({}, system)).starts_with("success: eth0 has 192.0.2.7; gateway 192.0.2.1 is there"));
    system.Eth0().gateway.clear();
    EXPECT_EQ(Said(CheckWired({}, system)),
              "warn: eth0 has no gateway: nothing beyond its network is reachable; check DHCP");
}

TEST(NetworkWired, TheNameServers) {
    Scripted system;
    system.servers = {"192.0.2.53", "192.0.2.54"};
    system.answers["192.0.2.54"] = DnsAnswer::Silent;
    EXPECT_EQ(Said(CheckWired({}, system)), "warn: name server 192.0.2.54 does not answer, another does; check it");
    system.answers["192.0.2.53"] = DnsAnswer::Silent;
    EXPECT_EQ(Said(CheckWired({}, system)), "fail: name server 192.0.2.54 does not answer; check it, or use another");
    system.answers["192.0.2.53"] = DnsAnswer::NotKnown;
    EXPECT_EQ(Said(CheckWired({.dnsName = "rooms.example"}, system)),
              "fail: name server 192.0.2.53 does not know rooms.example; check its settings");
    EXPECT_EQ(system.asked.back(), "192.0.2.53 rooms.example");
    system.servers.clear();
    EXPECT_EQ(Said(CheckWired({}, system)), "warn: no name server is set; check DHCP or /etc/resolv.conf");
    system.asked.clear();
    system.servers = {"a", "b", "c", "d"};
    (void)CheckWired({}, system);
    EXPECT_EQ(system.asked.size(), 3U);
}

TEST(NetworkWired, TheClock) {
    Scripted system;
    system.clock = ClockState::NotSynchronised;
    EXPECT_EQ(Said(CheckWired({}, system)), "warn: the clock is not synchronised; check the time server");
    EXPECT_TRUE(Said(CheckWired({.anyClock = true}, system)).starts_with("success"));
    system.clock = ClockState::Unknown;
    EXPECT_TRUE(Said(CheckWired({}, system)).starts_with("success: eth0"));
}

TEST(NetworkWireless, AssociationAndSignal) {
    Scripted system;
    EXPECT_EQ(Said(CheckWireless({}, system)), "success: wlan0 is in 'Room 5' with -61 dBm");
    EXPECT_EQ(Said(CheckWireless({.signal = 61}, system)), "success: wlan0 is in 'Room 5' with -61 dBm");
    EXPECT_EQ(Said(CheckWireless({.signal = 60}, system)),
              "warn: wlan0 is in 'Room 5' with -61 dBm, weaker than -60; move the access point nearer");
    EXPECT_EQ(Said(CheckWireless({.ssid = "Room 6"}, system)),
              "fail: wlan0 is in the network 'Room 5', not in 'Room 6'");
    system.wireless->front().signal = 0;
    EXPECT_EQ(Said(CheckWireless({}, system)), "unknown: wlan0 is in 'Room 5'; the driver does not tell its signal");
    system.wireless->front().ssid.clear();
    EXPECT_EQ(Said(CheckWireless({}, system)),
              "unknown: wlan0 is in no wireless network, and the room's file does not ask for it");
    EXPECT_EQ(Said(CheckWireless({.wireless = "wlan0"}, system)),
              "fail: wlan0 is in no wireless network; check its settings and the access point");
    EXPECT_EQ(Said(CheckWireless({.wireless = "wlan1"}, system)),
              "fail: wlan1: no such wireless interface; check the adapter");
    system.wireless->clear();
    EXPECT_EQ(Said(CheckWireless({}, system)), "unknown: this machine has no wireless interface");
    system.wireless = ominspect::OtherError("out of order");
    EXPECT_EQ(Said(CheckWireless({}, system)),
              "unknown: the kernel does not list its wireless interfaces: out of order");
}

TEST(NetworkLanMode, AgainstWhatIsExpected) {
    Scripted system;
    EXPECT_EQ(Said(CheckLanMode({}, system)), "success: eth0: 1000 Mbit/s full duplex");
    EXPECT_EQ(Said(CheckLanMode({.speed = 1000}, system)), "success: eth0: 1000 Mbit/s full duplex");
    EXPECT_EQ(Said(CheckLanMode({.speed = 2500}, system)),
              "fail: eth0: 1000 Mbit/s full duplex, expected 2500 Mbit/s; check the cable and the switch's port");
    EXPECT_EQ(Said(CheckLanMode({.halfDuplex = true}, system)),
              "fail: eth0: 1000 Mbit/s full duplex, expected half duplex; check the switch's port");
    system.mode = LinkMode{100, LinkMode::Duplex::Half};
    EXPECT_EQ(Said(CheckLanMode({}, system)),
              "fail: eth0: 100 Mbit/s half duplex, expected full duplex; check the switch's port");
    system.mode = LinkMode{};
    EXPECT_EQ(Said(CheckLanMode({}, system)), "unknown: eth0: speed not told; the driver does not tell all");
    system.mode = LinkMode{0, LinkMode::Duplex::Full};
    EXPECT_EQ(Said(CheckLanMode({.speed = 1000}, system)),
              "unknown: eth0: speed not told full duplex; the driver does not tell all");
    system.mode = ominspect::OtherError("Operation not supported");
    EXPECT_EQ(Said(CheckLanMode({}, system)),
              "unknown: eth0: the driver does not tell speed and duplex: Operation not supported");
    system.Eth0().hasCarrier = false;
    EXPECT_EQ(Said(CheckLanMode({}, system)), "fail: eth0: no carrier; check the cable and the switch");
}

}  // namespace
