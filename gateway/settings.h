// The gateway's configuration. Strictly validated; without a file, or an element of it, what stands here counts.
//
//   <Gateway process="ic-gateway" refresh="15">
//       <History enabled="true" path="/var/lib/ominspect-gateway/history.db" days="90" megabytes="64"/>
//       <Http enabled="true" tokens="/etc/ominspect/gateway.tokens" certificate="" key="">
//           <Unix path="/run/ominspect-gateway/http.sock"/>
//           <Tcp address="127.0.0.1" port="8642"/>
//           <Host name="room12.example.org"/>
//       </Http>
//       <Collection enabled="true" folder="/var/lib/ominspect-gateway/collection"
//                   config="/etc/ominspect/inspect_config.xml"/>
//       <DBus enabled="true"/>
//       <Metrics enabled="true"/>
//       <Mqtt enabled="true" terminal="room12" host="broker.example.org" authority="/etc/ominspect/mqtt-ca.pem"
//             certificate="/etc/ominspect/mqtt.pem" key="/etc/ominspect/mqtt.key" login="/etc/ominspect/mqtt.login"
//             rate="10">
//           <Role name="helpdesk" collect="true"><Run item="clock"/><Run item="disk_*"/></Role>
//       </Mqtt>
//   </Gateway>
//
// process: the name on the bus, which begins with "ic-"; refresh: seconds between two looks for items and owners.
// Http: with a Unix or Tcp element only what is named is listened to; Host names this machine in a browser's address
// beside its addresses and "localhost". Mqtt is off unless it is switched on; another host than the loopback's takes an
// authority. Relative paths are not taken.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/error.h"
#include "common/history_file.h"

namespace ominspect::gateway {

struct HistorySettings {
    bool isOn = true;
    std::string path = history::kDefaultPath;
    unsigned days = 90;
    unsigned megabytes = 64;
};

struct TcpAddress {
    std::string address;  // of IPv4 or IPv6, in numbers
    std::uint16_t port;   // 0: any free one, for tests
};

struct HttpSettings {
    bool isOn = true;
    std::vector<std::string> unixPaths{"/run/ominspect-gateway/http.sock"};
    std::vector<TcpAddress> tcp{{"127.0.0.1", 8642}};
    std::vector<std::string> hosts;
    std::string tokens = OMINSPECT_CONFIG_DIR "/gateway.tokens";
    std::string certificate;  // both empty: without TLS
    std::string key;
};

struct CollectionSettings {
    bool isOn = true;
    std::string folder = "/var/lib/ominspect-gateway/collection";
    std::string config;  // whose entries are collected; empty: the server's
};

struct DBusSettings {
    bool isOn = true;
};

struct MetricsSettings {
    bool isOn = true;
};

struct MqttRole {
    std::string name;
    std::vector<std::string> items;  // that it may run; one that ends with '*' stands for all that begin so
    bool mayCollect = false;
};

struct MqttSettings {
    bool isOn = false;
    std::string terminal;  // its name among the fleet; empty: the host's
    std::string host;      // of the broker, a name or an address; empty: `socket`, the path of a Unix socket
    std::string socket;
    std::uint16_t port = 1883;  // 8883 with TLS
    std::string login;          // the path of the user and the password; empty: none
    std::string authority;      // the path of the certificates that are trusted; empty: without TLS
    std::string certificate;    // both empty: none of its own
    std::string key;
    std::string position = "/var/lib/ominspect-gateway/mqtt.position";
    unsigned rate = 10;
    std::vector<MqttRole> roles;  // none: nobody may ask for anything
};

struct Settings {
    std::string process = "ic-gateway";
    std::chrono::seconds refresh{15};
    HistorySettings history;
    HttpSettings http;
    CollectionSettings collection;
    DBusSettings dbus;
    MetricsSettings metrics;
    MqttSettings mqtt;
};

// Parses a configuration text. The error of a mistake is "line N: what is wrong".
Result<Settings> ParseSettings(std::string_view xml);

// The same for a regular file of at most 64 KiB; the error begins with the path.
Result<Settings> LoadSettings(const std::string& path);

}  // namespace ominspect::gateway
