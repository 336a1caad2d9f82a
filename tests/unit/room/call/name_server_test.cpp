// The whole program in a network of its own, with name servers that are silent or not there.
#include <gtest/gtest.h>

#include <string>

#include "support/child.h"
#include "support/temp_folder.h"

namespace {

class NameServer : public testing::Test {
protected:
    void SetUp() override {
        const support::Outcome allowed = support::Run({"unshare", "--map-root-user", "--net", "--mount", "true"});
        ASSERT_EQ(allowed.exitCode, 0) << allowed.output;
        support::WriteFile(folder_ / "resolv.conf", "nameserver 127.0.0.1\n");
        support::WriteFile(folder_ / "hosts", "127.0.0.1 localhost\n");
        support::WriteFile(folder_ / "nsswitch.conf", "hosts: files dns\n");
        support::WriteFile(folder_ / "room.xml", R"(<Room><Call limit="1">
            <SipServer host="sip.example.org"/>
            <Gatekeeper host="gk.example.org"/>
            <ConferenceServer host="meet.example.org"/>
            <LdapServer host="ldap.example.org" base="dc=example"/>
        </Call></Room>)");
    }

    // The exit code and the line of an item, after what the script has done in the namespace.
    [[nodiscard]] std::string Look(const std::string& item, const std::string& script) const {
        const support::Outcome said =
            support::Run({"unshare", "--map-root-user", "--net", "--mount", "sh", "-c",
                          "ip link set lo up; for file in resolv.conf hosts nsswitch.conf; do "
                          "mount --bind \"$0/$file\" \"/etc/$file\"; done; " +
                              script + " \"$1\" --config \"$0/room.xml\" --answer \"$2\"; code=$?; " +
                              "[ -z \"$server\" ] || kill \"$server\"; exit $code",
                          folder_.Path().string(), ROOM_CHECK_PROGRAM, item});
        return std::to_string(said.exitCode) + ": " + said.output;
    }

    support::TempFolder folder_;
};

// It takes every question and never answers.
constexpr const char* kSilent = "\"" SOCAT_PROGRAM
                                "\" -u UDP-RECV:53,bind=127.0.0.1 OPEN:/dev/null & server=$!; "
                                "until grep -q 0100007F:0035 /proc/net/udp; do :; done;";

TEST_F(NameServer, ThatIsSilentHoldsNoItemUp) {
    const std::string why = ": name not resolved in 1 s; check the name server\n";
    EXPECT_EQ(Look("conf_sip_ft", kSilent), "2: sip.example.org:5060/udp" + why);
    EXPECT_EQ(Look("conf_h323_ft", kSilent), "2: gk.example.org:1719" + why);
    EXPECT_EQ(Look("conf_conferenceserver_ft", kSilent), "2: meet.example.org:443" + why);
    EXPECT_EQ(Look("conf_ldapserver_ft", kSilent), "2: ldap.example.org:389" + why);
}

TEST_F(NameServer, ThatIsNotThereIsSaid) {
    EXPECT_EQ(Look("conf_sip_ft", ""),
              "2: sip.example.org:5060/udp: the name server does not answer; check the network\n");
}

}  // namespace
