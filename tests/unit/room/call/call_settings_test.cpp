// The element Call of the room's file: what is taken, and what each mistake is called.
#include "call/call_settings.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "settings.h"

using namespace room;

namespace {

// The settings of an element Call whose contents begin on line 2.
ominspect::Result<Settings> Read(const std::string& contents, const std::string& attributes = "") {
    return ParseSettings("<Room><Call" + attributes + ">\n" + contents + "</Call></Room>");
}

std::string MistakeOf(const std::string& contents, const std::string& attributes = "") {
    const auto settings = Read(contents, attributes);
    return settings ? "taken" : settings.Failure().text;
}

TEST(CallSettings, AreReadWhole) {
    const auto settings = Read(R"(
        <DoNotDisturb on="false"/>
        <AutoAnswer file="/etc/calls.conf" key="answer.muted"/>
        <DefaultBandwidth kbps="2048" min="512"/>
        <MaxIncomingBandwidth kbps="4096"/>
        <SipServer host="a.example"/>
        <SipServer host="2001:db8::1" transport="tls" user="room1" certificateName="b.example" caFile="/ca"
                   warnDays="30" failDays="7"/>
        <SipServer host="c.example" transport="tcp" port="5070"/>
        <Gatekeeper host="gk.example"/>
        <ConferenceServer host="meet.example"/>
        <ConferenceServer host="plain.example" port="8080" tls="false"/>
        <LdapServer host="ldap.example" base="dc=example" credentials="/cred"/>)",
                               " limit=\"3\"");
    ASSERT_TRUE(settings) << settings.Failure().text;
    const CallSettings& call = settings->call;
    EXPECT_EQ(call.limit, std::chrono::seconds(3));
    EXPECT_EQ(call.doNotDisturb.value().value, "false");
    EXPECT_EQ(call.autoAnswerMuted.value().file, "/etc/calls.conf");
    EXPECT_EQ(call.autoAnswerMuted.value().key, "answer.muted");
    EXPECT_EQ(call.defaultBandwidth.value().kbps.value, "2048");
    EXPECT_EQ(call.defaultBandwidth.value().min, 512U);
    EXPECT_EQ(call.maxIncomingBandwidth.value().min, 1024U) << "the default";
    ASSERT_EQ(call.sipServers.size(), 3U);
    EXPECT_EQ(call.sipServers[0].transport, SipTransport::Udp) << "the default";
    EXPECT_EQ(call.sipServers[0].host.Text(), "a.example:5060");
    EXPECT_EQ(call.sipServers[1].transport, SipTransport::Tls);
    EXPECT_EQ(call.sipServers[1].host.Text(), "[2001:db8::1]:5061");
    EXPECT_EQ(call.sipServers[1].user, "room1");
    EXPECT_EQ(call.sipServers[1].trust.name, "b.example");
    EXPECT_EQ(call.sipServers[1].trust.caFile, "/ca");
    EXPECT_EQ(call.sipServers[1].trust.warnDays, 30U);
    EXPECT_EQ(call.sipServers[1].trust.failDays, 7U);
    EXPECT_EQ(call.sipServers[2].transport, SipTransport::Tcp);
    EXPECT_EQ(call.sipServers[2].host.port, 5070);
    EXPECT_EQ(call.gatekeeper.value().Text(), "gk.example:1719");
    EXPECT_FALSE(call.h323Peer);
    ASSERT_EQ(call.conferenceServers.size(), 2U);
    EXPECT_EQ(call.conferenceServers[0].host.port, 443);
    EXPECT_TRUE(call.conferenceServers[0].tls);
    EXPECT_EQ(call.conferenceServers[0].trust.warnDays, 21U) << "the default";
    EXPECT_EQ(call.conferenceServers[0].trust.failDays, 3U) << "the default";
    EXPECT_FALSE(call.conferenceServers[1].tls);
    const LdapServer& ldap = call.ldapServer.value();
    EXPECT_EQ(ldap.security, LdapSecurity::StartTls) << "the default";
    EXPECT_EQ(ldap.host.Text(), "ldap.example:389");
    EXPECT_EQ(ldap.base, "dc=example");
    EXPECT_EQ(ldap.credentials, "/cred");
}

TEST(CallSettings, NothingIsAlsoTaken) {
    const auto settings = Read("");
    ASSERT_TRUE(settings) << settings.Failure().text;
    EXPECT_EQ(settings->call.limit, std::chrono::seconds(5));
    EXPECT_TRUE(settings->call.sipServers.empty());
    EXPECT_FALSE(settings->call.ldapServer);
}

TEST(CallSettings, PeersAndOtherPortsAreTaken) {
    const auto settings =
        Read("<H323Peer host=\"mcu\"/><LdapServer host=\"l\" security=\"tls\" base=\"b\" caFile=\"/x\"/>");
    ASSERT_TRUE(settings) << settings.Failure().text;
    EXPECT_EQ(settings->call.h323Peer.value().Text(), "mcu:1720");
    EXPECT_EQ(settings->call.ldapServer.value().host.port, 636);
    EXPECT_EQ(settings->call.ldapServer.value().security, LdapSecurity::Tls);
    EXPECT_EQ(settings->call.ldapServer.value().trust.caFile, "/x");
}

struct Mistake {
    const char* contents;
    const char* text;
};

TEST(CallSettings, AMistakeIsToldWithItsLine) {
    const Mistake mistakes[] = {
        Mistake{"<Sip/>", "line 2: unknown element 'Sip' in Call"},
        Mistake{"text", "line 2: Call may hold elements and comments only"},
        Mistake{"<DoNotDisturb/>", "line 2: DoNotDisturb needs either on, or file and key"},
        Mistake{"<DoNotDisturb on=\"off\"/>", "line 2: on 'off' must be \"true\" or \"false\""},
        Mistake{"<DoNotDisturb on=\"true\" file=\"/a\" key=\"b\"/>",
                "line 2: DoNotDisturb needs either on, or file and key"},
        Mistake{"<DoNotDisturb file=\"/a\"/>", "line 2: DoNotDisturb needs either on, or file and key"},
        Mistake{"<DoNotDisturb on=\"true\" key=\"b\"/>", "line 2: DoNotDisturb needs either on, or file and key"},
        Mistake{"<DoNotDisturb file=\"a\" key=\"b\"/>", "line 2: file 'a' must be an absolute path"},
        Mistake{"<DoNotDisturb on=\"true\"/>\n<DoNotDisturb on=\"true\"/>",
                "line 3: a second element 'DoNotDisturb' in Call"},
        Mistake{"<AutoAnswer on=\"true\"/>", "line 2: AutoAnswer has no attribute 'on'"},
        Mistake{"<AutoAnswer muted=\"true\"><X/></AutoAnswer>", "line 2: unknown element 'X' in AutoAnswer"},
        Mistake{"<DefaultBandwidth kbps=\"0\"/>", "line 2: kbps '0' must be a number from 1 to 10000000"},
        Mistake{"<DefaultBandwidth kbps=\"1M\"/>", "line 2: kbps '1M' must be a number from 1 to 10000000"},
        Mistake{"<MaxIncomingBandwidth min=\"1\"/>", "line 2: MaxIncomingBandwidth needs either kbps, or file and key"},
        Mistake{"<SipServer/>", "line 2: SipServer needs the attribute 'host'"},
        Mistake{"<SipServer host=\"a:5060/\"/>", "line 2: host 'a:5060/' must be a name or an address"},
        Mistake{"<SipServer host=\"[::1]\"/>", "line 2: host '[::1]' must be a name or an address"},
        Mistake{"<SipServer host=\"a\" port=\"65536\"/>", "line 2: port '65536' must be a number from 1 to 65535"},
        Mistake{"<SipServer host=\"a\" transport=\"TLS\"/>", "line 2: transport 'TLS' must be 'udp', 'tcp' or 'tls'"},
        Mistake{"<SipServer host=\"a\" caFile=\"/x\"/>", "line 2: caFile needs TLS"},
        Mistake{"<SipServer host=\"a\" transport=\"tls\" caFile=\"x\"/>",
                "line 2: caFile 'x' must be an absolute path"},
        Mistake{"<ConferenceServer host=\"a\" warnDays=\"2\"/>", "line 2: failDays must not be above warnDays"},
        Mistake{"<ConferenceServer host=\"a\" tls=\"false\" failDays=\"2\"/>", "line 2: failDays needs TLS"},
        Mistake{"<Gatekeeper host=\"a\" user=\"b\"/>", "line 2: Gatekeeper has no attribute 'user'"},
        Mistake{"<Gatekeeper host=\"a\"/><H323Peer host=\"b\"/>",
                "line 1: Call may have a Gatekeeper or an H323Peer, not both"},
        Mistake{"<LdapServer host=\"a\"/>", "line 2: LdapServer needs the attribute 'base'"},
        Mistake{"<LdapServer host=\"a\" base=\"b\" security=\"ssl\"/>",
                "line 2: security 'ssl' must be 'startTls', 'tls' or 'none'"},
        Mistake{"<LdapServer host=\"a\" base=\"b\" security=\"none\" caFile=\"/x\"/>", "line 2: caFile needs TLS"},
        Mistake{"<LdapServer host=\"a\" base=\"b\" security=\"none\" credentials=\"/x\"/>",
                "line 2: credentials would be sent in the clear: security must be 'startTls' or 'tls'"},
        Mistake{"<LdapServer host=\"a\" base=\"b\" password=\"x\"/>",
                "line 2: LdapServer has no attribute 'password'"}};
    for (const Mistake& mistake : mistakes) {
        EXPECT_EQ(MistakeOf(mistake.contents), mistake.text) << mistake.contents;
    }
}

TEST(CallSettings, TheLimitStaysWithinTheItems) {
    EXPECT_EQ(MistakeOf("", " limit=\"9\""), "line 1: limit '9' must be a number from 1 to 8");
    EXPECT_EQ(MistakeOf("", " limit=\"0\""), "line 1: limit '0' must be a number from 1 to 8");
    EXPECT_EQ(MistakeOf("", " limit=\"8\""), "taken");
}

TEST(CallSettings, AtMostEightServersOfAKindAreTaken) {
    std::string eight;
    for (int i = 0; i < 8; ++i) {
        eight += "<SipServer host=\"a\"/><ConferenceServer host=\"a\"/>";
    }
    EXPECT_EQ(MistakeOf(eight), "taken");
    EXPECT_EQ(MistakeOf(eight + "<SipServer host=\"a\"/>"), "line 2: more than 8 elements SipServer");
    EXPECT_EQ(MistakeOf(eight + "<ConferenceServer host=\"a\"/>"), "line 2: more than 8 elements ConferenceServer");
}

}  // namespace
