// Two questions by generic netlink (nl80211): the interfaces, and for each the station that it talks to.
#include "network/wireless.h"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>

#include <linux/nl80211.h>
#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <netlink/netlink.h>

namespace room {
namespace {

using Attributes = std::array<nlattr*, NL80211_ATTR_MAX + 1>;
using Take = std::function<void(const Attributes&)>;

int OnMessage(nl_msg* message, void* context) {
    Attributes attributes{};
    auto* head = static_cast<genlmsghdr*>(nlmsg_data(nlmsg_hdr(message)));
    if (nla_parse(attributes.data(), NL80211_ATTR_MAX, genlmsg_attrdata(head, 0), genlmsg_attrlen(head, 0), nullptr) ==
        0) {
        (*static_cast<const Take*>(context))(attributes);
    }
    return NL_OK;
}

// Asks for a list; 0 or a negative code.
int Dump(nl_sock* socket, int family, std::uint8_t command, std::uint32_t interface, const Take& take) {
    const std::unique_ptr<nl_msg, void (*)(nl_msg*)> message(nlmsg_alloc(), nlmsg_free);
    if (!message || genlmsg_put(message.get(), 0, 0, family, 0, NLM_F_DUMP, command, 0) == nullptr) {
        return -NLE_NOMEM;
    }
    if (interface != 0) {
        (void)nla_put_u32(message.get(), NL80211_ATTR_IFINDEX, interface);
    }
    (void)nl_socket_modify_cb(socket, NL_CB_VALID, NL_CB_CUSTOM, OnMessage, const_cast<Take*>(&take));
    const int sent = nl_send_auto(socket, message.get());
    return sent < 0 ? sent : nl_recvmsgs_default(socket);
}

int SignalOf(nl_sock* socket, int family, std::uint32_t interface) {
    int signal = 0;
    (void)Dump(socket, family, NL80211_CMD_GET_STATION, interface, [&signal](const Attributes& attributes) {
        std::array<nlattr*, NL80211_STA_INFO_MAX + 1> station{};
        nlattr* nested = attributes[NL80211_ATTR_STA_INFO];
        if (nested != nullptr && nla_parse_nested(station.data(), NL80211_STA_INFO_MAX, nested, nullptr) == 0 &&
            station[NL80211_STA_INFO_SIGNAL] != nullptr) {
            const std::uint8_t byte = nla_get_u8(station[NL80211_STA_INFO_SIGNAL]);
            signal = byte < 0x80 ? byte : byte - 0x100;  // dBm as a signed byte
        }
    });
    return signal;
}

}  // namespace

ominspect::Result<std::vector<WirelessLink>> ListWirelessLinks() {
    const std::unique_ptr<nl_sock, void (*)(nl_sock*)> socket(nl_socket_alloc(), nl_socket_free);
    const int connected = socket ? genl_connect(socket.get()) : -NLE_NOMEM;
    if (connected < 0) {
        return ominspect::OtherError(nl_geterror(connected));
    }
    std::vector<WirelessLink> links;
    const int family = genl_ctrl_resolve(socket.get(), NL80211_GENL_NAME);
    if (family < 0) {
        return links;  // no such part in the kernel, or not loaded: no interface
    }
    std::vector<std::uint32_t> indexes;
    const int listed = Dump(socket.get(), family, NL80211_CMD_GET_INTERFACE, 0, [&](const Attributes& attributes) {
        if (attributes[NL80211_ATTR_IFNAME] == nullptr || attributes[NL80211_ATTR_IFINDEX] == nullptr) {
            return;
        }
        WirelessLink& link = links.emplace_back();
        link.name = nla_get_string(attributes[NL80211_ATTR_IFNAME]);
        indexes.push_back(nla_get_u32(attributes[NL80211_ATTR_IFINDEX]));
        if (nlattr* ssid = attributes[NL80211_ATTR_SSID]; ssid != nullptr) {
            link.ssid.assign(static_cast<const char*>(nla_data(ssid)), static_cast<std::size_t>(nla_len(ssid)));
        }
    });
    if (listed < 0) {
        return ominspect::OtherError(nl_geterror(listed));
    }
    for (std::size_t at = 0; at < links.size(); ++at) {
        links[at].signal = links[at].ssid.empty() ? 0 : SignalOf(socket.get(), family, indexes[at]);
    }
    return links;
}

}  // namespace room
