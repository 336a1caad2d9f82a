// The system's own answers: routing netlink for links, addresses, routes and neighbours, ethtool's ioctl for the mode.
#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <new>
#include <thread>
#include <utility>

#include <linux/ethtool.h>
#include <linux/if_arp.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <linux/sockios.h>
#include <netlink/cache.h>
#include <netlink/route/addr.h>
#include <netlink/route/link.h>
#include <netlink/route/neighbour.h>
#include <netlink/route/nexthop.h>
#include <netlink/route/route.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/timex.h>

#include "common/fd.h"
#include "network/address.h"
#include "network/dns.h"
#include "network/network_probe.h"
#include "network/ping.h"
#include "network/wireless.h"

namespace room {
namespace {

using Socket = std::unique_ptr<nl_sock, void (*)(nl_sock*)>;
using Cache = std::unique_ptr<nl_cache, void (*)(nl_cache*)>;

ominspect::Error NetlinkError(int code) {
    return ominspect::OtherError(nl_geterror(code));
}

// A cache of the kernel's objects of one kind; null when the kernel does not list them.
Cache Fetch(nl_sock* socket, int (*allocate)(nl_sock*, nl_cache**)) {
    nl_cache* cache = nullptr;
    return {allocate(socket, &cache) == 0 ? cache : nullptr, nl_cache_free};
}

// Calls `take` with each object of the cache.
template <typename Object, typename Take>
void ForEach(const Cache& cache, Take take) {
    for (nl_object* object = cache ? nl_cache_get_first(cache.get()) : nullptr; object != nullptr;
         object = nl_cache_get_next(object)) {
        take(reinterpret_cast<Object*>(object));
    }
}

// Without the length of the prefix.
std::string TextOf(nl_addr* address) {
    std::array<char, 128> text{};
    if (address == nullptr) {
        return {};
    }
    const std::string whole = nl_addr2str(address, text.data(), text.size());
    return whole.substr(0, whole.find('/'));
}

void AddAddress(std::vector<Link>& links, rtnl_addr* address) {
    nl_addr* local = rtnl_addr_get_local(address);
    const std::string text = TextOf(local);
    // An address that a machine gives itself where nobody gives it one is good for the link only.
    if (rtnl_addr_get_scope(address) != RT_SCOPE_UNIVERSE || text.empty() || text.starts_with("169.254.")) {
        return;
    }
    for (Link& link : links) {
        if (link.index == rtnl_addr_get_ifindex(address)) {
            const bool isFirst = nl_addr_get_family(local) == AF_INET;
            link.addresses.insert(isFirst ? link.addresses.begin() : link.addresses.end(), text);
        }
    }
}

void AddRoute(std::vector<Link>& links, rtnl_route* route) {
    nl_addr* destination = rtnl_route_get_dst(route);
    if (rtnl_route_get_table(route) != RT_TABLE_MAIN ||
        (destination != nullptr && nl_addr_get_prefixlen(destination) != 0)) {
        return;
    }
    for (int hop = 0; hop < rtnl_route_get_nnexthops(route); ++hop) {
        rtnl_nexthop* next = rtnl_route_nexthop_n(route, hop);
        const std::string gateway = TextOf(rtnl_route_nh_get_gateway(next));
        for (Link& link : links) {
            const bool isBetter = link.gateway.empty() || rtnl_route_get_family(route) == AF_INET;
            if (link.index == rtnl_route_nh_get_ifindex(next) && !gateway.empty() && isBetter) {
                link.gateway = gateway;
            }
        }
    }
}

class System : public NetworkProbe {
public:
    explicit System(KernelFiles files) : files_(std::move(files)), socket_(nl_socket_alloc(), nl_socket_free) {
        connected_ = socket_ ? nl_connect(socket_.get(), NETLINK_ROUTE) : -NLE_NOMEM;
    }

    ominspect::Result<std::vector<Link>> Links() override {
        if (connected_ < 0) {
            return NetlinkError(connected_);
        }
        const Cache all = Fetch(socket_.get(), [](nl_sock* socket, nl_cache** cache) {
            return rtnl_link_alloc_cache(socket, AF_UNSPEC, cache);
        });
        if (!all) {
            return ominspect::OtherError("no list of the links");
        }
        std::vector<Link> links;
        ForEach<rtnl_link>(all, [&links](rtnl_link* link) {
            if (rtnl_link_get_arptype(link) == ARPHRD_ETHER) {
                Link& added = links.emplace_back();
                added.name = rtnl_link_get_name(link);
                added.index = rtnl_link_get_ifindex(link);
                added.isVirtual = rtnl_link_get_type(link) != nullptr;
                added.isUp = (rtnl_link_get_flags(link) & static_cast<unsigned>(IFF_UP)) != 0;
                added.hasCarrier = rtnl_link_get_carrier(link) != 0;
            }
        });
        ForEach<rtnl_addr>(Fetch(socket_.get(), rtnl_addr_alloc_cache),
                           [&links](rtnl_addr* address) { AddAddress(links, address); });
        const Cache routes = Fetch(socket_.get(), [](nl_sock* socket, nl_cache** cache) {
            return rtnl_route_alloc_cache(socket, AF_UNSPEC, 0, cache);
        });
        ForEach<rtnl_route>(routes, [&links](rtnl_route* route) { AddRoute(links, route); });
        return links;
    }

    ominspect::Result<std::vector<WirelessLink>> WirelessLinks() override { return ListWirelessLinks(); }

    ominspect::Result<LinkMode> Mode(const std::string& link) override {
        const ominspect::UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        constexpr std::size_t kMasks = 3UL * 128UL * sizeof(std::uint32_t);
        alignas(ethtool_link_settings) std::array<std::byte, sizeof(ethtool_link_settings) + kMasks> buffer{};
        auto* request = new (buffer.data()) ethtool_link_settings;
        ifreq wanted{};
        std::memcpy(wanted.ifr_name, link.data(), std::min(link.size(), sizeof wanted.ifr_name - 1));
        wanted.ifr_data = reinterpret_cast<char*>(request);
        // The kernel first says how many words its masks have, and fills them when it is asked again.
        for (int round = 0; round < 2; ++round) {
            const auto words = static_cast<std::int8_t>(-request->link_mode_masks_nwords);
            buffer.fill(std::byte{0});
            request->cmd = ETHTOOL_GLINKSETTINGS;
            request->link_mode_masks_nwords = words;
            if (ioctl(fd.Get(), SIOCETHTOOL, &wanted) != 0) {
                return ominspect::SystemError();
            }
        }
        const auto speed = request->speed;
        const auto duplex = request->duplex;
        return LinkMode{speed == static_cast<std::uint32_t>(SPEED_UNKNOWN) ? 0 : speed,
                        duplex == DUPLEX_FULL   ? LinkMode::Duplex::Full
                        : duplex == DUPLEX_HALF ? LinkMode::Duplex::Half
                                                : LinkMode::Duplex::Unknown};
    }

    ominspect::Result<Echoes> Ping(const std::string& address, int linkIndex) override {
        return PingAddress(address, linkIndex);
    }

    // An entry from before counts only once the kernel has confirmed it, which the kernel does within seven seconds
    // after a datagram was sent.
    bool IsNeighbour(const std::string& address, int linkIndex) override {
        constexpr std::chrono::milliseconds kPatience{7500};
        constexpr std::chrono::milliseconds kStep{50};
        constexpr std::uint16_t kDiscard = 9;
        const auto target = ParseAddress(address, kDiscard, linkIndex);
        if (!target || connected_ < 0) {
            return false;
        }
        const ominspect::UniqueFd fd(socket(target->Family(), SOCK_DGRAM | SOCK_CLOEXEC, 0));
        (void)sendto(fd.Get(), "", 0, MSG_NOSIGNAL, target->Get(), target->size);
        const auto end = std::chrono::steady_clock::now() + kPatience;
        for (;;) {
            const int state = NeighbourState(address, linkIndex);
            if ((state & (NUD_REACHABLE | NUD_PERMANENT)) != 0) {
                return true;
            }
            if ((state & NUD_FAILED) != 0 || std::chrono::steady_clock::now() >= end) {
                return false;
            }
            std::this_thread::sleep_for(kStep);
        }
    }

    std::vector<std::string> NameServers() override {
        static constexpr std::string_view kWord = "nameserver";
        std::vector<std::string> servers;
        for (const std::string& line : files_.Lines("/etc/resolv.conf")) {
            if (line.starts_with(kWord)) {
                const std::size_t begin = line.find_first_not_of(" \t", kWord.size());
                if (begin != std::string::npos && begin > kWord.size()) {
                    servers.push_back(line.substr(begin, line.find_first_of(" \t%", begin) - begin));
                }
            }
        }
        return servers;
    }

    DnsAnswer AskNameServer(const std::string& server, const std::string& name) override {
        constexpr std::chrono::milliseconds kWait{1000};
        constexpr std::uint16_t kPort = 53;
        const auto address = ParseAddress(server, kPort);
        return address ? AskServer(*address, name, kWait) : DnsAnswer::Silent;
    }

    ClockState Clock() override {
        timex state{};
        const int result = adjtimex(&state);
        if (result < 0) {
            return ClockState::Unknown;
        }
        return result == TIME_ERROR || (state.status & STA_UNSYNC) != 0 ? ClockState::NotSynchronised
                                                                        : ClockState::Synchronised;
    }

private:
    int NeighbourState(const std::string& address, int linkIndex) {
        int state = 0;
        ForEach<rtnl_neigh>(Fetch(socket_.get(), rtnl_neigh_alloc_cache), [&](rtnl_neigh* neighbour) {
            if (rtnl_neigh_get_ifindex(neighbour) == linkIndex && TextOf(rtnl_neigh_get_dst(neighbour)) == address) {
                state = rtnl_neigh_get_state(neighbour);
            }
        });
        return state;
    }

    KernelFiles files_;
    Socket socket_;
    int connected_ = 0;
};

}  // namespace

std::unique_ptr<NetworkProbe> SystemNetwork(const KernelFiles& files) {
    return std::make_unique<System>(files);
}

}  // namespace room
