// Reading stops at the first mistake.
#include "settings.h"

#include <array>

#include <arpa/inet.h>

#include "common/xml_reader.h"

namespace ominspect::gateway {
namespace {

using namespace xml;

constexpr const char* kRoot = "Gateway";
constexpr std::size_t kMaxProcessName = 15;
constexpr std::size_t kMaxPath = 4095;
constexpr std::size_t kMaxUnixPath = 107;
constexpr std::size_t kMaxHostName = 253;
constexpr unsigned kMaxRefresh = 3600;
constexpr unsigned kMaxDays = 3650;
constexpr unsigned kMaxMegabytes = 65536;
constexpr unsigned kMaxPort = 65535;
constexpr std::size_t kMaxListeners = 8;
constexpr std::size_t kMaxTerminal = 128;
constexpr std::size_t kMaxRoleName = 64;
constexpr std::size_t kMaxItem = 64;
constexpr unsigned kMaxRate = 10000;

std::string ReadPath(const Element& element, const Attributes& attributes, std::string_view attribute,
                     const std::string& fallback, std::size_t max = kMaxPath) {
    const auto found = attributes.find(attribute);
    if (found == attributes.end()) {
        return fallback;
    }
    std::string path = ReadName(element, attributes, attribute, max);
    if (path[0] != '/') {
        throw Mistake{found->second.line, std::string(attribute) + " " + Quoted(path) + " must be an absolute path"};
    }
    return path;
}

HistorySettings ReadHistory(const Element& element) {
    static constexpr std::array<std::string_view, 4> kKnown{"enabled", "path", "days", "megabytes"};
    const Attributes attributes = ReadAttributes(element, kKnown);
    RefuseChildren(element);
    HistorySettings history;
    history.isOn = ReadBool(attributes, "enabled", true);
    history.path = ReadPath(element, attributes, "path", history.path);
    history.days = ReadNumber(attributes, "days", history.days, kMaxDays);
    history.megabytes = ReadNumber(attributes, "megabytes", history.megabytes, kMaxMegabytes);
    return history;
}

bool IsAddress(const std::string& text) {
    std::array<unsigned char, sizeof(in6_addr)> ignored{};
    return inet_pton(AF_INET, text.c_str(), ignored.data()) == 1 ||
           inet_pton(AF_INET6, text.c_str(), ignored.data()) == 1;
}

TcpAddress ReadTcp(const Element& element) {
    static constexpr std::array<std::string_view, 2> kKnown{"address", "port"};
    const Attributes attributes = ReadAttributes(element, kKnown);
    RefuseChildren(element);
    TcpAddress tcp{ReadName(element, attributes, "address", INET6_ADDRSTRLEN), 0};
    if (!IsAddress(tcp.address)) {
        throw Mistake{element.GetLineNum(), "address " + Quoted(tcp.address) + " must be an address in numbers"};
    }
    const auto port = attributes.find("port");
    const bool isAny = port != attributes.end() && port->second.value == "0";
    tcp.port = isAny ? std::uint16_t{0} : static_cast<std::uint16_t>(ReadNumber(attributes, "port", 8642, kMaxPort));
    return tcp;
}

HttpSettings ReadHttp(const Element& element) {
    static constexpr std::array<std::string_view, 4> kKnown{"enabled", "tokens", "certificate", "key"};
    static constexpr std::array<std::string_view, 1> kPath{"path"};
    static constexpr std::array<std::string_view, 1> kName{"name"};
    const Attributes attributes = ReadAttributes(element, kKnown);
    HttpSettings http;
    http.isOn = ReadBool(attributes, "enabled", true);
    http.tokens = ReadPath(element, attributes, "tokens", http.tokens);
    http.certificate = ReadPath(element, attributes, "certificate", "");
    http.key = ReadPath(element, attributes, "key", "");
    if (http.certificate.empty() != http.key.empty()) {
        throw Mistake{element.GetLineNum(), "Http needs both, certificate and key, or neither"};
    }
    std::vector<std::string> unixPaths;
    std::vector<TcpAddress> tcp;
    for (const auto* child : ReadChildren(element)) {
        const std::string_view name = child->Name();
        if (name == "Unix") {
            RefuseChildren(*child);
            const Attributes own = ReadAttributes(*child, kPath);
            (void)ReadName(*child, own, "path", kMaxUnixPath);
            unixPaths.push_back(ReadPath(*child, own, "path", "", kMaxUnixPath));
        } else if (name == "Tcp") {
            tcp.push_back(ReadTcp(*child));
        } else if (name == "Host") {
            RefuseChildren(*child);
            http.hosts.push_back(ReadName(*child, ReadAttributes(*child, kName), "name", kMaxHostName));
        } else {
            throw Mistake{child->GetLineNum(), "unknown element " + Quoted(name) + " in Http"};
        }
        if (unixPaths.size() + tcp.size() > kMaxListeners) {
            throw Mistake{child->GetLineNum(), "more than " + std::to_string(kMaxListeners) + " places to listen"};
        }
    }
    if (!unixPaths.empty() || !tcp.empty()) {
        http.unixPaths = std::move(unixPaths);
        http.tcp = std::move(tcp);
    }
    return http;
}

CollectionSettings ReadCollection(const Element& element) {
    static constexpr std::array<std::string_view, 3> kKnown{"enabled", "folder", "config"};
    const Attributes attributes = ReadAttributes(element, kKnown);
    RefuseChildren(element);
    CollectionSettings collection;
    collection.isOn = ReadBool(attributes, "enabled", true);
    collection.folder = ReadPath(element, attributes, "folder", collection.folder);
    collection.config = ReadPath(element, attributes, "config", "");
    return collection;
}

DBusSettings ReadDBus(const Element& element) {
    static constexpr std::array<std::string_view, 1> kKnown{"enabled"};
    RefuseChildren(element);
    return {ReadBool(ReadAttributes(element, kKnown), "enabled", true)};
}

MetricsSettings ReadMetrics(const Element& element) {
    static constexpr std::array<std::string_view, 1> kKnown{"enabled"};
    const Attributes attributes = ReadAttributes(element, kKnown);
    RefuseChildren(element);
    return {ReadBool(attributes, "enabled", true)};
}

MqttRole ReadRole(const Element& element) {
    static constexpr std::array<std::string_view, 2> kKnown{"name", "collect"};
    static constexpr std::array<std::string_view, 1> kItem{"item"};
    const Attributes attributes = ReadAttributes(element, kKnown);
    MqttRole role;
    role.name = ReadName(element, attributes, "name", kMaxRoleName);
    role.mayCollect = ReadBool(attributes, "collect", false);
    for (const auto* child : ReadChildren(element)) {
        if (std::string_view(child->Name()) != "Run") {
            throw Mistake{child->GetLineNum(), "unknown element " + Quoted(child->Name()) + " in Role"};
        }
        RefuseChildren(*child);
        role.items.push_back(ReadName(*child, ReadAttributes(*child, kItem), "item", kMaxItem));
    }
    return role;
}

bool IsThisMachine(const std::string& host) {
    return host.empty() || host == "localhost" || host == "::1" || (host.starts_with("127.") && IsAddress(host));
}

// What the file says of the broker must make sense as a whole.
void CheckMqtt(const Element& element, const MqttSettings& mqtt) {
    const auto refuse = [&](const char* text) { throw Mistake{element.GetLineNum(), text}; };
    if (mqtt.host.empty() == mqtt.socket.empty()) {
        refuse("Mqtt needs either host or socket");
    }
    if (mqtt.certificate.empty() != mqtt.key.empty()) {
        refuse("Mqtt needs both, certificate and key, or neither");
    }
    if (mqtt.authority.empty() && !mqtt.certificate.empty()) {
        refuse("Mqtt needs an authority for its certificate");
    }
    if (mqtt.authority.empty() && !IsThisMachine(mqtt.host)) {
        refuse("Mqtt needs an authority, as the broker is another machine");
    }
}

MqttSettings ReadMqtt(const Element& element) {
    static constexpr std::array<std::string_view, 11> kKnown{"enabled", "terminal", "host",      "port",
                                                             "socket",  "login",    "authority", "certificate",
                                                             "key",     "position", "rate"};
    const Attributes attributes = ReadAttributes(element, kKnown);
    MqttSettings mqtt;
    mqtt.isOn = ReadBool(attributes, "enabled", false);
    mqtt.terminal = ReadOptionalName(element, attributes, "terminal", kMaxTerminal);
    mqtt.host = ReadOptionalName(element, attributes, "host", kMaxHostName);
    mqtt.socket = ReadPath(element, attributes, "socket", "", kMaxUnixPath);
    mqtt.login = ReadPath(element, attributes, "login", "");
    mqtt.authority = ReadPath(element, attributes, "authority", "");
    mqtt.certificate = ReadPath(element, attributes, "certificate", "");
    mqtt.key = ReadPath(element, attributes, "key", "");
    mqtt.position = ReadPath(element, attributes, "position", mqtt.position);
    mqtt.rate = ReadNumber(attributes, "rate", mqtt.rate, kMaxRate);
    mqtt.port =
        static_cast<std::uint16_t>(ReadNumber(attributes, "port", mqtt.authority.empty() ? 1883 : 8883, kMaxPort));
    for (const auto* child : ReadChildren(element)) {
        if (std::string_view(child->Name()) != "Role") {
            throw Mistake{child->GetLineNum(), "unknown element " + Quoted(child->Name()) + " in Mqtt"};
        }
        mqtt.roles.push_back(ReadRole(*child));
    }
    if (mqtt.isOn) {
        CheckMqtt(element, mqtt);
    }
    return mqtt;
}

Settings ReadGateway(const Element& element) {
    static constexpr std::array<std::string_view, 2> kKnown{"process", "refresh"};
    const Attributes attributes = ReadAttributes(element, kKnown);
    Settings settings;
    if (attributes.contains("process")) {
        settings.process = ReadName(element, attributes, "process", kMaxProcessName);
        if (!settings.process.starts_with("ic-")) {
            throw Mistake{element.GetLineNum(),
                          "process " + Quoted(settings.process) + " must begin with \"ic-\", as requesters' names do"};
        }
    }
    settings.refresh = std::chrono::seconds(
        ReadNumber(attributes, "refresh", static_cast<unsigned>(settings.refresh.count()), kMaxRefresh));
    std::string seen;
    for (const auto* child : ReadChildren(element)) {
        const std::string name = child->Name();
        if (seen.find(" " + name + " ") != std::string::npos) {
            throw Mistake{child->GetLineNum(), "a second element " + Quoted(name)};
        }
        seen += " " + name + " ";
        if (name == "History") {
            settings.history = ReadHistory(*child);
        } else if (name == "Http") {
            settings.http = ReadHttp(*child);
        } else if (name == "Collection") {
            settings.collection = ReadCollection(*child);
        } else if (name == "DBus") {
            settings.dbus = ReadDBus(*child);
        } else if (name == "Metrics") {
            settings.metrics = ReadMetrics(*child);
        } else if (name == "Mqtt") {
            settings.mqtt = ReadMqtt(*child);
        } else {
            throw Mistake{child->GetLineNum(), "unknown element " + Quoted(name) + " in Gateway"};
        }
    }
    return settings;
}

}  // namespace

Result<Settings> ParseSettings(std::string_view xml) {
    Settings settings;
    const auto error = ReadDocument(xml, kRoot, [&](const Element& root) { settings = ReadGateway(root); });
    return error ? Result<Settings>(*error) : std::move(settings);
}

Result<Settings> LoadSettings(const std::string& path) {
    Settings settings;
    const auto error = ReadFile(path, kRoot, [&](const Element& root) { settings = ReadGateway(root); });
    return error ? Result<Settings>(*error) : std::move(settings);
}

}  // namespace ominspect::gateway
