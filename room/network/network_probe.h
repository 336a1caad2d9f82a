// What the checks of the network ask the system for. Tests answer instead of it.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/error.h"
#include "kernel_files.h"

namespace room {

struct Link {
    std::string name{};
    int index = 0;
    bool isVirtual = false;  // such as a bridge or the loopback
    bool isUp = false;
    bool hasCarrier = false;
    std::vector<std::string> addresses{};  // those that are good for more than the link itself
    std::string gateway{};                 // of its default route; empty for none
};

struct LinkMode {
    unsigned speed = 0;  // in Mbit/s; 0: not told
    enum class Duplex { Unknown, Half, Full } duplex = Duplex::Unknown;
};

struct Echoes {
    unsigned sent = 0;
    unsigned answered = 0;
};

enum class DnsAnswer { Answered, NotKnown, Silent };

enum class ClockState { Synchronised, NotSynchronised, Unknown };

struct WirelessLink {
    std::string name{};
    std::string ssid{};  // empty: not associated
    int signal = 0;      // in dBm; 0: not told
};

class NetworkProbe {
public:
    virtual ~NetworkProbe() = default;
    virtual ominspect::Result<std::vector<Link>> Links() = 0;
    // Those that the wireless part of the kernel knows; none when there is no such part.
    virtual ominspect::Result<std::vector<WirelessLink>> WirelessLinks() = 0;
    virtual ominspect::Result<LinkMode> Mode(const std::string& link) = 0;
    // Nothing was sent when the system does not allow it.
    virtual ominspect::Result<Echoes> Ping(const std::string& address, int linkIndex) = 0;
    // Whether the link knows the neighbour's hardware address now.
    virtual bool IsNeighbour(const std::string& address, int linkIndex) = 0;
    virtual std::vector<std::string> NameServers() = 0;
    // Asks for a name; for an empty one, whether the server answers at all.
    virtual DnsAnswer AskNameServer(const std::string& server, const std::string& name) = 0;
    virtual ClockState Clock() = 0;
};

// The system itself; `files` are for /etc/resolv.conf.
std::unique_ptr<NetworkProbe> SystemNetwork(const KernelFiles& files);

}  // namespace room
