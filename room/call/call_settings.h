// What is expected of the calls and of the servers that they need: the element Call of the room's file.
//
//   <Call limit="5">
//       <DoNotDisturb on="false"/>
//       <AutoAnswer muted="false"/>
//       <DefaultBandwidth kbps="2048" min="1024"/>
//       <MaxIncomingBandwidth kbps="4096" min="1024"/>
//       <SipServer host="sip.example.org" transport="tls" port="5061" user="room1" caFile="/etc/ominspect/ca.pem"/>
//       <Gatekeeper host="gk.example.org" port="1719"/>     or <H323Peer host="mcu.example.org" port="1720"/>
//       <ConferenceServer host="meet.example.org" port="443" tls="true" warnDays="21" failDays="3"/>
//       <LdapServer host="ldap.example.org" security="startTls" base="dc=example,dc=org"
//                   credentials="/etc/ominspect/ldap"/>
//   </Call>
//
// Call: `limit`, the whole seconds (1 to 8, default 5) that a check of servers takes at most.
// The first four: instead of the value, `file` and `key` may name where the room's call program keeps it, a file of
// lines "key = value"; `min` (default 1024) is the least good bandwidth.
// SipServer, up to eight: `transport` is "udp" (the default), "tcp" or "tls"; `port` defaults to 5060, or 5061 for TLS;
// `user` is the room's own and may be left out.
// Gatekeeper or H323Peer: one of the two.
// ConferenceServer, up to eight: `port` defaults to 443, `tls` to "true".
// LdapServer: `security` is "startTls" (the default), "tls" or "none"; `base` is the entry that must be found;
// `credentials` names the file of credentials.h and is refused with security "none".
// Where there is TLS: `caFile` holds the certificates that are trusted instead of the system's, `certificateName`
// stands for the host, and `warnDays` (default 21) and `failDays` (default 3) are the days left below which the finding
// is "warn" or "fail".
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "call/certificate.h"
#include "call/host.h"
#include "call/sip_options.h"
#include "common/xml_reader.h"

namespace room {

// A setting of the room's call program: its value, or where the program keeps it.
struct Choice {
    std::string value;
    std::string file;  // empty when the value stands in the room's file
    std::string key;
};

struct Bandwidth {
    Choice kbps;
    unsigned min = 0;
};

struct SipServer {
    SipTransport transport = SipTransport::Udp;
    Host host;
    std::string user;
    Trust trust;
};

struct ConferenceServer {
    Host host;
    bool tls = true;
    Trust trust;
};

enum class LdapSecurity { None, StartTls, Tls };

struct LdapServer {
    Host host;
    LdapSecurity security = LdapSecurity::StartTls;
    std::string base;
    Trust trust;
    std::string credentials;  // the file; empty for an anonymous bind
};

struct CallSettings {
    std::chrono::seconds limit{5};
    std::optional<Choice> doNotDisturb;
    std::optional<Choice> autoAnswerMuted;
    std::optional<Bandwidth> defaultBandwidth;
    std::optional<Bandwidth> maxIncomingBandwidth;
    std::vector<SipServer> sipServers;
    std::optional<Host> gatekeeper;
    std::optional<Host> h323Peer;
    std::vector<ConferenceServer> conferenceServers;
    std::optional<LdapServer> ldapServer;
};

// Reads the element Call of the room's file.
CallSettings ReadCallSettings(const ominspect::xml::Element& element);

}  // namespace room
