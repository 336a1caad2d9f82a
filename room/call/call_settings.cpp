// Each element has a function of its own; ReadCallSettings puts them together.
#include "call/call_settings.h"

#include <array>
#include <set>
#include <span>
#include <string_view>

namespace room {
namespace {

namespace xml = ominspect::xml;

constexpr std::size_t kMaxName = 255;  // of a host in the DNS
constexpr std::size_t kMaxText = 1023;
constexpr std::size_t kMaxServers = 8;
constexpr unsigned kMaxKbps = 10'000'000;
constexpr unsigned kDefaultMinKbps = 1024;
constexpr unsigned kMaxDays = 3650;

void RefuseContents(const xml::Element& element) {
    for (const auto* child : xml::ReadChildren(element)) {
        throw xml::Mistake{child->GetLineNum(),
                           "unknown element " + xml::Quoted(child->Name()) + " in " + element.Name()};
    }
}

// An attribute that may be left out.
std::string ReadOptional(const xml::Element& element, const xml::Attributes& attributes, std::string_view name) {
    return attributes.contains(name) ? xml::ReadName(element, attributes, name, kMaxText) : "";
}

std::string ReadPath(const xml::Element& element, const xml::Attributes& attributes, std::string_view name) {
    std::string path = ReadOptional(element, attributes, name);
    if (!path.empty() && path[0] != '/') {
        throw xml::Mistake{attributes.find(name)->second.line,
                           std::string(name) + " " + xml::Quoted(path) + " must be an absolute path"};
    }
    return path;
}

Host ReadHost(const xml::Element& element, const xml::Attributes& attributes, unsigned defaultPort) {
    Host host;
    host.name = xml::ReadName(element, attributes, "host", kMaxName);
    // A host in brackets or with a port would be looked up as it stands, and never found.
    if (host.name.find_first_of(" /[]@<>\"") != std::string::npos) {
        throw xml::Mistake{attributes.find("host")->second.line,
                           "host " + xml::Quoted(host.name) + " must be a name or an address"};
    }
    host.port = static_cast<std::uint16_t>(xml::ReadNumber(attributes, "port", defaultPort, 65535));
    return host;
}

// One of a few words; the first when it is not there.
std::size_t ReadWord(const xml::Attributes& attributes, std::string_view name,
                     std::span<const std::string_view> words) {
    const auto found = attributes.find(name);
    if (found == attributes.end()) {
        return 0;
    }
    std::string all;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (found->second.value == words[i]) {
            return i;
        }
        all += (i == 0 ? "" : i + 1 == words.size() ? " or " : ", ") + xml::Quoted(words[i]);
    }
    throw xml::Mistake{found->second.line,
                       std::string(name) + " " + xml::Quoted(found->second.value) + " must be " + all};
}

Trust ReadTrust(const xml::Element& element, const xml::Attributes& attributes) {
    Trust trust;
    trust.name = ReadOptional(element, attributes, "certificateName");
    trust.caFile = ReadPath(element, attributes, "caFile");
    trust.warnDays = xml::ReadNumber(attributes, "warnDays", trust.warnDays, kMaxDays, 0);
    trust.failDays = xml::ReadNumber(attributes, "failDays", trust.failDays, kMaxDays, 0);
    if (trust.failDays > trust.warnDays) {
        throw xml::Mistake{element.GetLineNum(), "failDays must not be above warnDays"};
    }
    return trust;
}

// What says something of TLS where there is none.
void RefuseTrust(const xml::Attributes& attributes) {
    for (const std::string_view name : {"certificateName", "caFile", "warnDays", "failDays"}) {
        if (const auto found = attributes.find(name); found != attributes.end()) {
            throw xml::Mistake{found->second.line, std::string(name) + " needs TLS"};
        }
    }
}

// `file` and `key`; both empty when the value itself is there.
Choice ReadPlace(const xml::Element& element, const xml::Attributes& attributes, std::string_view value) {
    Choice choice;
    choice.file = ReadPath(element, attributes, "file");
    choice.key = ReadOptional(element, attributes, "key");
    const bool hasValue = attributes.contains(value);
    if (hasValue == !choice.file.empty() || choice.file.empty() != choice.key.empty()) {
        throw xml::Mistake{element.GetLineNum(),
                           std::string(element.Name()) + " needs either " + std::string(value) + ", or file and key"};
    }
    return choice;
}

Choice ReadSwitch(const xml::Element& element, std::string_view value) {
    const std::array<std::string_view, 3> known{value, "file", "key"};
    const auto attributes = xml::ReadAttributes(element, known);
    RefuseContents(element);
    Choice choice = ReadPlace(element, attributes, value);
    if (choice.file.empty()) {
        choice.value = xml::ReadBool(attributes, value) ? "true" : "false";
    }
    return choice;
}

Bandwidth ReadBandwidth(const xml::Element& element) {
    static constexpr std::array<std::string_view, 4> kKnown{"kbps", "file", "key", "min"};
    const auto attributes = xml::ReadAttributes(element, kKnown);
    RefuseContents(element);
    Bandwidth bandwidth;
    bandwidth.kbps = ReadPlace(element, attributes, "kbps");
    if (bandwidth.kbps.file.empty()) {
        bandwidth.kbps.value = std::to_string(xml::ReadNumber(attributes, "kbps", 0, kMaxKbps));
    }
    bandwidth.min = xml::ReadNumber(attributes, "min", kDefaultMinKbps, kMaxKbps);
    return bandwidth;
}

SipServer ReadSipServer(const xml::Element& element) {
    static constexpr std::array<std::string_view, 8> kKnown{
        "host", "port", "transport", "user", "certificateName", "caFile", "warnDays", "failDays"};
    static constexpr std::array<std::string_view, 3> kTransports{"udp", "tcp", "tls"};
    const auto attributes = xml::ReadAttributes(element, kKnown);
    RefuseContents(element);
    SipServer server;
    server.transport = static_cast<SipTransport>(ReadWord(attributes, "transport", kTransports));
    const bool tls = server.transport == SipTransport::Tls;
    server.host = ReadHost(element, attributes, tls ? 5061 : 5060);
    server.user = ReadOptional(element, attributes, "user");
    if (tls) {
        server.trust = ReadTrust(element, attributes);
    } else {
        RefuseTrust(attributes);
    }
    return server;
}

Host ReadPlainHost(const xml::Element& element, unsigned defaultPort) {
    static constexpr std::array<std::string_view, 2> kKnown{"host", "port"};
    const auto attributes = xml::ReadAttributes(element, kKnown);
    RefuseContents(element);
    return ReadHost(element, attributes, defaultPort);
}

ConferenceServer ReadConferenceServer(const xml::Element& element) {
    static constexpr std::array<std::string_view, 7> kKnown{"host",   "port",     "tls",     "certificateName",
                                                            "caFile", "warnDays", "failDays"};
    const auto attributes = xml::ReadAttributes(element, kKnown);
    RefuseContents(element);
    ConferenceServer server;
    server.host = ReadHost(element, attributes, 443);
    server.tls = !attributes.contains("tls") || xml::ReadBool(attributes, "tls");
    if (server.tls) {
        server.trust = ReadTrust(element, attributes);
    } else {
        RefuseTrust(attributes);
    }
    return server;
}

LdapServer ReadLdapServer(const xml::Element& element) {
    static constexpr std::array<std::string_view, 9> kKnown{
        "host", "port", "security", "base", "credentials", "certificateName", "caFile", "warnDays", "failDays"};
    static constexpr std::array<std::string_view, 3> kSecurities{"startTls", "tls", "none"};
    static constexpr std::array<LdapSecurity, 3> kValues{LdapSecurity::StartTls, LdapSecurity::Tls, LdapSecurity::None};
    const auto attributes = xml::ReadAttributes(element, kKnown);
    RefuseContents(element);
    LdapServer server;
    server.security = kValues.at(ReadWord(attributes, "security", kSecurities));
    server.host = ReadHost(element, attributes, server.security == LdapSecurity::Tls ? 636 : 389);
    server.base = xml::ReadName(element, attributes, "base", kMaxText);
    server.credentials = ReadPath(element, attributes, "credentials");
    if (server.security == LdapSecurity::None) {
        RefuseTrust(attributes);
        if (!server.credentials.empty()) {
            throw xml::Mistake{attributes.find("credentials")->second.line,
                               "credentials would be sent in the clear: security must be 'startTls' or 'tls'"};
        }
    } else {
        server.trust = ReadTrust(element, attributes);
    }
    return server;
}

template <typename Server>
void AddServer(std::vector<Server>& servers, Server server, const xml::Element& element) {
    if (servers.size() == kMaxServers) {
        throw xml::Mistake{element.GetLineNum(),
                           "more than " + std::to_string(kMaxServers) + " elements " + element.Name()};
    }
    servers.push_back(std::move(server));
}

// The element, wherever it belongs; false when there is no such.
bool ReadServer(const xml::Element& element, CallSettings& settings) {
    const std::string_view name = element.Name();
    if (name == "SipServer") {
        AddServer(settings.sipServers, ReadSipServer(element), element);
    } else if (name == "ConferenceServer") {
        AddServer(settings.conferenceServers, ReadConferenceServer(element), element);
    } else if (name == "Gatekeeper") {
        settings.gatekeeper = ReadPlainHost(element, 1719);
    } else if (name == "H323Peer") {
        settings.h323Peer = ReadPlainHost(element, 1720);
    } else if (name == "LdapServer") {
        settings.ldapServer = ReadLdapServer(element);
    } else {
        return false;
    }
    return true;
}

bool ReadChoice(const xml::Element& element, CallSettings& settings) {
    const std::string_view name = element.Name();
    if (name == "DoNotDisturb") {
        settings.doNotDisturb = ReadSwitch(element, "on");
    } else if (name == "AutoAnswer") {
        settings.autoAnswerMuted = ReadSwitch(element, "muted");
    } else if (name == "DefaultBandwidth") {
        settings.defaultBandwidth = ReadBandwidth(element);
    } else if (name == "MaxIncomingBandwidth") {
        settings.maxIncomingBandwidth = ReadBandwidth(element);
    } else {
        return false;
    }
    return true;
}

}  // namespace

CallSettings ReadCallSettings(const xml::Element& element) {
    static constexpr std::array<std::string_view, 1> kKnown{"limit"};
    static constexpr unsigned kMaxLimit = 8;  // the whole item may take ten seconds
    const auto attributes = xml::ReadAttributes(element, kKnown);
    CallSettings settings;
    settings.limit = std::chrono::seconds(
        xml::ReadNumber(attributes, "limit", static_cast<unsigned>(settings.limit.count()), kMaxLimit));
    std::set<std::string_view> seen;
    for (const auto* child : xml::ReadChildren(element)) {
        const std::string_view name = child->Name();
        const bool mayRepeat = name == "SipServer" || name == "ConferenceServer";
        if (!mayRepeat && !seen.insert(name).second) {
            throw xml::Mistake{child->GetLineNum(), "a second element " + xml::Quoted(name) + " in Call"};
        }
        if (!ReadServer(*child, settings) && !ReadChoice(*child, settings)) {
            throw xml::Mistake{child->GetLineNum(), "unknown element " + xml::Quoted(name) + " in Call"};
        }
    }
    if (settings.gatekeeper && settings.h323Peer) {
        throw xml::Mistake{element.GetLineNum(), "Call may have a Gatekeeper or an H323Peer, not both"};
    }
    return settings;
}

}  // namespace room
