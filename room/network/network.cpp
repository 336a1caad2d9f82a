// What is judged here was asked from the system before; nothing here waits by itself.
#include "network/network.h"

#include <algorithm>
#include <array>

#include "item.h"
#include "settings.h"

namespace room {
namespace {

namespace xml = ominspect::xml;

// The link that is meant, or why there is none.
struct Chosen {
    std::optional<Link> link;
    Finding otherwise;
};

Chosen ChooseWired(const NetworkSettings& settings, NetworkProbe& probe) {
    const auto links = probe.Links();
    if (!links) {
        return {std::nullopt, Unknown("the kernel does not list its interfaces: " + links.Failure().text)};
    }
    const auto wireless = probe.WirelessLinks();
    const auto isMeant = [&](const Link& link) {
        if (!settings.wired.empty()) {
            return link.name == settings.wired;
        }
        return !link.isVirtual &&
               (!wireless || std::none_of(wireless->begin(), wireless->end(),
                                          [&](const auto& other) { return other.name == link.name; }));
    };
    const auto found = std::find_if(links->begin(), links->end(), isMeant);
    if (found != links->end()) {
        return {*found, {}};
    }
    if (!settings.wired.empty()) {
        return {std::nullopt,
                Fail(settings.wired + ": no such interface; check the adapter, or its name in the room's file")};
    }
    return {std::nullopt, Unknown("this machine has no wired interface")};
}

// What stands in the way of everything else; nothing when the link carries.
std::optional<Finding> Broken(const Link& link) {
    if (!link.isUp) {
        return Fail(link.name + " is switched off; switch it on (ip link set " + link.name + " up)");
    }
    if (!link.hasCarrier) {
        return Fail(link.name + ": no carrier; check the cable and the switch");
    }
    return std::nullopt;
}

void LookAtGateway(const Link& link, NetworkProbe& probe, Findings& findings) {
    if (link.gateway.empty()) {
        findings.Add(Warn(link.name + " has no gateway: nothing beyond its network is reachable; check DHCP"));
        return;
    }
    const std::string gateway = "gateway " + link.gateway;
    const auto echoes = probe.Ping(link.gateway, link.index);
    if (echoes && echoes->sent > 0 && echoes->answered == echoes->sent) {
        findings.Add(Success(gateway + " answers"));
    } else if (echoes && echoes->answered > 0) {
        findings.Add(Warn(gateway + " answers " + std::to_string(echoes->answered) + " of " +
                          std::to_string(echoes->sent) + " times; check cable and switch"));
    } else if (probe.IsNeighbour(link.gateway, link.index)) {
        // Many answer no echoes.
        findings.Add(Success(gateway + " is there"));
    } else {
        findings.Add(Fail(gateway + " does not answer; check the switch and the router"));
    }
}

void LookAtNameServers(const NetworkSettings& settings, NetworkProbe& probe, Findings& findings) {
    // As many as the system itself asks.
    constexpr std::size_t kMost = 3;
    std::vector<std::string> servers = probe.NameServers();
    servers.resize(std::min(servers.size(), kMost));
    if (servers.empty()) {
        findings.Add(Warn("no name server is set; check DHCP or /etc/resolv.conf"));
        return;
    }
    std::string silent;
    std::size_t answered = 0;
    for (const std::string& server : servers) {
        const DnsAnswer answer = probe.AskNameServer(server, settings.dnsName);
        if (answer == DnsAnswer::NotKnown) {
            findings.Add(Fail("name server " + server + " does not know " + settings.dnsName + "; check its settings"));
            return;
        }
        if (answer == DnsAnswer::Answered) {
            ++answered;
        } else {
            silent = server;
        }
    }
    if (answered == servers.size()) {
        findings.Add(Success("name server answers"));
    } else if (answered == 0) {
        findings.Add(Fail("name server " + silent + " does not answer; check it, or use another"));
    } else {
        findings.Add(Warn("name server " + silent + " does not answer, another does; check it"));
    }
}

void LookAtClock(NetworkProbe& probe, Findings& findings) {
    switch (probe.Clock()) {
        case ClockState::Synchronised:
            findings.Add(Success("clock synchronised"));
            break;
        case ClockState::NotSynchronised:
            findings.Add(Warn("the clock is not synchronised; check the time server"));
            break;
        case ClockState::Unknown:
            findings.Add(Unknown("the clock's state is not told"));
            break;
    }
}

std::string ModeText(const LinkMode& mode) {
    const std::string duplex = mode.duplex == LinkMode::Duplex::Full   ? " full duplex"
                               : mode.duplex == LinkMode::Duplex::Half ? " half duplex"
                                                                       : "";
    return (mode.speed > 0 ? std::to_string(mode.speed) + " Mbit/s" : std::string("speed not told")) + duplex;
}

std::unique_ptr<NetworkProbe> Probe(const Settings& settings) {
    return SystemNetwork(KernelFiles(settings.root));
}

constexpr std::array kItems{
    Item{"devm_wired_connect_ft",
         "the wired interface: carrier, address, gateway that answers, name servers, clock synchronised",
         [](const Settings& settings) { return CheckWired(settings.network, *Probe(settings)); }, 20},
    Item{"devm_connect_ap_ft", "the wireless interface: its network and its signal",
         [](const Settings& settings) { return CheckWireless(settings.network, *Probe(settings)); }},
    Item{"devm_lan_mode_ft", "speed and duplex of the wired interface against what is expected",
         [](const Settings& settings) { return CheckLanMode(settings.network, *Probe(settings)); }},
};

}  // namespace

NetworkSettings ReadNetworkSettings(const xml::Element& element) {
    static constexpr std::array<std::string_view, 8> kKnown{"wired", "speed",    "duplex", "dnsName",
                                                            "clock", "wireless", "ssid",   "signal"};
    constexpr std::size_t kMaxInterface = 15;
    constexpr std::size_t kMaxName = 253;
    constexpr std::size_t kMaxSsid = 32;
    constexpr unsigned kMaxSpeed = 800000;
    constexpr unsigned kMaxSignal = 120;
    const xml::Attributes attributes = xml::ReadAttributes(element, kKnown);
    xml::RefuseChildren(element);
    NetworkSettings settings;
    settings.wired = xml::ReadOptionalName(element, attributes, "wired", kMaxInterface);
    settings.speed = xml::ReadNumber(attributes, "speed", 0, kMaxSpeed);
    settings.halfDuplex = xml::ReadWord(attributes, "duplex", {"full", "half"}) == "half";
    settings.dnsName = xml::ReadOptionalName(element, attributes, "dnsName", kMaxName);
    settings.anyClock = xml::ReadWord(attributes, "clock", {"synchronised", "any"}) == "any";
    settings.wireless = xml::ReadOptionalName(element, attributes, "wireless", kMaxInterface);
    settings.ssid = xml::ReadOptionalName(element, attributes, "ssid", kMaxSsid);
    settings.signal = xml::ReadNumber(attributes, "signal", settings.signal, kMaxSignal);
    return settings;
}

Finding CheckWired(const NetworkSettings& settings, NetworkProbe& probe) {
    const Chosen chosen = ChooseWired(settings, probe);
    if (!chosen.link) {
        return chosen.otherwise;
    }
    const Link& link = *chosen.link;
    if (const auto broken = Broken(link)) {
        return *broken;
    }
    if (link.addresses.empty()) {
        return Fail(link.name + " has a carrier, but no address; check DHCP");
    }
    Findings findings;
    findings.Add(Success(link.name + " has " + link.addresses.front()));
    LookAtGateway(link, probe, findings);
    LookAtNameServers(settings, probe, findings);
    if (!settings.anyClock) {
        LookAtClock(probe, findings);
    }
    return findings.Sum("");
}

Finding CheckWireless(const NetworkSettings& settings, NetworkProbe& probe) {
    const auto links = probe.WirelessLinks();
    if (!links) {
        return Unknown("the kernel does not list its wireless interfaces: " + links.Failure().text);
    }
    const auto found = std::find_if(links->begin(), links->end(), [&](const WirelessLink& link) {
        return settings.wireless.empty() || link.name == settings.wireless;
    });
    if (found == links->end()) {
        return settings.wireless.empty() ? Unknown("this machine has no wireless interface")
                                         : Fail(settings.wireless + ": no such wireless interface; check the adapter");
    }
    const bool isWanted = !settings.wireless.empty() || !settings.ssid.empty();
    if (found->ssid.empty()) {
        return isWanted ? Fail(found->name + " is in no wireless network; check its settings and the access point")
                        : Unknown(found->name + " is in no wireless network, and the room's file does not ask for it");
    }
    if (!settings.ssid.empty() && found->ssid != settings.ssid) {
        return Fail(found->name + " is in the network '" + found->ssid + "', not in '" + settings.ssid + "'");
    }
    const std::string network = found->name + " is in '" + found->ssid + "'";
    if (found->signal == 0) {
        return Unknown(network + "; the driver does not tell its signal");
    }
    const std::string signal = " with " + std::to_string(found->signal) + " dBm";
    if (found->signal < -static_cast<int>(settings.signal)) {
        return Warn(network + signal + ", weaker than -" + std::to_string(settings.signal) +
                    "; move the access point nearer");
    }
    return Success(network + signal);
}

Finding CheckLanMode(const NetworkSettings& settings, NetworkProbe& probe) {
    const Chosen chosen = ChooseWired(settings, probe);
    if (!chosen.link) {
        return chosen.otherwise;
    }
    if (const auto broken = Broken(*chosen.link)) {
        return *broken;
    }
    const std::string& name = chosen.link->name;
    const auto mode = probe.Mode(name);
    if (!mode) {
        return Unknown(name + ": the driver does not tell speed and duplex: " + mode.Failure().text);
    }
    const std::string found = name + ": " + ModeText(*mode);
    if (settings.speed > 0 && mode->speed > 0 && mode->speed != settings.speed) {
        return Fail(found + ", expected " + std::to_string(settings.speed) +
                    " Mbit/s; check the cable and the switch's port");
    }
    const auto wanted = settings.halfDuplex ? LinkMode::Duplex::Half : LinkMode::Duplex::Full;
    if (mode->duplex != LinkMode::Duplex::Unknown && mode->duplex != wanted) {
        return Fail(found + ", expected " + (settings.halfDuplex ? "half" : "full") +
                    " duplex; check the switch's port");
    }
    const bool isTold = mode->duplex == wanted && (mode->speed > 0 || settings.speed == 0);
    return isTold ? Success(found) : Unknown(found + "; the driver does not tell all");
}

std::span<const Item> NetworkItems() {
    return kItems;
}

}  // namespace room
