// Directories: a real slapd(8) with and without TLS, and scripted servers that misbehave.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>

#include "call/call.h"
#include "certificates.h"
#include "loopback.h"
#include "support/child.h"
#include "support/eventually.h"
#include "support/temp_folder.h"

using namespace room;
using namespace std::chrono_literals;
using loopback::DaysFromNow;
using loopback::Server;

namespace {

constexpr const char* kAdvice = "; check the server and the network";

class Ldap : public testing::Test {
protected:
    Ldap() {
        ldap.base = "dc=example";
        settings.limit = std::chrono::seconds(8);
    }

    Finding CheckAt(std::uint16_t port, LdapSecurity security) {
        ldap.host = {host, port};
        ldap.security = security;
        settings.ldapServer = ldap;
        name = ldap.host.Text();
        return CheckLdap(settings);
    }

    void Expect(const Finding& finding, Status status, const std::string& text) const {
        EXPECT_EQ(finding.status, status) << finding.text;
        EXPECT_EQ(finding.text, name + text);
        EXPECT_EQ(finding.text.find("s3cret"), std::string::npos);
    }

    std::string host = "127.0.0.1";
    LdapServer ldap;
    CallSettings settings;
    std::string name;
    support::TempFolder folder;
};

// A directory with the entries dc=example, which everybody may read, and cn=room1, who may read dc=rooms,dc=example.
class RealLdap : public Ldap {
protected:
    void Start(const loopback::CertificateRequest& certificate = {.name = "server"}, const std::string& more = "") {
        certificates.Make({.name = "root", .subject = "/CN=Test root", .altNames = "", .isCa = true});
        certificates.Make(certificate, "root");
        ldap.trust.caFile = certificates.PathOf("root");
        std::filesystem::create_directory(folder / "db");
        support::WriteFile(folder / "slapd.conf",
                           "include /etc/ldap/schema/core.schema\n"
                           "TLSCACertificateFile " +
                               certificates.PathOf("root") + "\nTLSCertificateFile " +
                               certificates.PathOf(certificate.name) + "\nTLSCertificateKeyFile " +
                               certificates.KeyOf(certificate.name) + "\n" + more +
                               "\ndatabase ldif\nsuffix \"dc=example\"\ndirectory " + (folder / "db") +
                               "\naccess to attrs=userPassword by anonymous auth\n"
                               "access to dn.base=\"dc=example\" by * read\n"
                               "access to dn.base=\"dc=rooms,dc=example\" by users read by * none\n");
        support::WriteFile(
            folder / "data.ldif",
            "dn: dc=example\nobjectClass: dcObject\nobjectClass: organization\ndc: example\no: e\n\n"
            "dn: dc=rooms,dc=example\nobjectClass: dcObject\nobjectClass: organization\ndc: rooms\no: r\n\n"
            "dn: cn=room1,dc=example\nobjectClass: person\ncn: room1\nsn: r\nuserPassword: s3cret\n");
        // A copy of the program: the system's may be confined to its usual folders.
        const std::string program = folder / "slapd";
        std::filesystem::copy_file(SLAPD_PROGRAM, program);
        const support::Outcome filled =
            support::Run({program, "-T", "add", "-f", folder / "slapd.conf", "-l", folder / "data.ldif"});
        ASSERT_EQ(filled.exitCode, 0) << filled.output;
        plain = loopback::FreePort();
        secure = loopback::FreePort();
        server = std::make_unique<support::Child>(std::vector<std::string>{
            program, "-f", folder / "slapd.conf", "-d", "0", "-h",
            "ldap://127.0.0.1:" + std::to_string(plain) + " ldaps://127.0.0.1:" + std::to_string(secure)});
        ASSERT_TRUE(support::Eventually([this] {
            return loopback::TakesConnections(plain) && loopback::TakesConnections(secure);
        })) << server->Output();
    }

    void UseCredentials(const std::string& password) {
        ldap.credentials = folder / "credentials";
        support::WriteFile(ldap.credentials, "user = cn=room1,dc=example\npassword = " + password + "\n");
        ASSERT_EQ(chmod(ldap.credentials.c_str(), 0600), 0);
    }

    loopback::Certificates certificates;
    std::unique_ptr<support::Child> server;
    std::uint16_t plain = 0;
    std::uint16_t secure = 0;
};

TEST_F(RealLdap, TakesABindWithEachSecurity) {
    Start();
    Expect(CheckAt(plain, LdapSecurity::StartTls), Status::Success, ": anonymous bind, base found");
    Expect(CheckAt(secure, LdapSecurity::Tls), Status::Success, ": anonymous bind, base found");
    ldap.trust.caFile.clear();
    Expect(CheckAt(plain, LdapSecurity::None), Status::Success, ": anonymous bind, base found");
    UseCredentials("s3cret");
    ldap.trust.caFile = certificates.PathOf("root");
    ldap.base = "dc=rooms,dc=example";
    Expect(CheckAt(plain, LdapSecurity::StartTls), Status::Success, ": bind with credentials, base found");
    Expect(CheckAt(secure, LdapSecurity::Tls), Status::Success, ": bind with credentials, base found");
}

TEST_F(RealLdap, RefusesWrongCredentials) {
    Start();
    UseCredentials("s3cret2");
    Expect(CheckAt(plain, LdapSecurity::StartTls), Status::Fail,
           ": refuses the credentials; check " + ldap.credentials);
}

TEST_F(RealLdap, RefusesAnAnonymousBind) {
    Start({.name = "server"}, "disallow bind_anon");
    Expect(CheckAt(plain, LdapSecurity::StartTls), Status::Fail,
           ": refuses the credentials; check whether an anonymous bind is meant");
}

TEST_F(RealLdap, WantsTls) {
    Start({.name = "server"}, "security tls=1");
    ldap.trust.caFile.clear();
    Expect(CheckAt(plain, LdapSecurity::None), Status::Fail,
           ": refuses this kind of bind; set security and credentials");
}

TEST_F(RealLdap, HasNoSuchBase) {
    Start();
    ldap.base = "dc=other,dc=example";
    Expect(CheckAt(plain, LdapSecurity::StartTls), Status::Fail,
           ": anonymous bind, but there is no such base; check base and rights");
    ldap.base = "nonsense";
    Expect(CheckAt(plain, LdapSecurity::StartTls), Status::Fail,
           ": anonymous bind, but there is no such base; check base and rights");
    ldap.base = "dc=rooms,dc=example";
    Expect(CheckAt(plain, LdapSecurity::StartTls), Status::Fail,
           ": anonymous bind, but the base is not shown; check base and rights");
}

TEST_F(RealLdap, HasACertificateForAnotherName) {
    Start({.name = "other", .subject = "/CN=other.example", .altNames = "DNS:other.example"});
    const std::string why = ": certificate is for other.example, not for 127.0.0.1; check the server and the network";
    Expect(CheckAt(plain, LdapSecurity::StartTls), Status::Fail, why);
    Expect(CheckAt(secure, LdapSecurity::Tls), Status::Fail, why);
    ldap.trust.name = "other.example";
    EXPECT_EQ(CheckAt(plain, LdapSecurity::StartTls).status, Status::Success) << "the name that is expected";
}

TEST_F(RealLdap, HasACertificateThatHasEnded) {
    Start({.name = "expired", .notBefore = DaysFromNow(-30), .notAfter = DaysFromNow(-5)});
    Expect(CheckAt(plain, LdapSecurity::StartTls), Status::Fail, ": certificate expired 4 days ago; renew it");
    Expect(CheckAt(secure, LdapSecurity::Tls), Status::Fail, ": certificate expired 4 days ago; renew it");
}

TEST_F(RealLdap, HasACertificateThatEndsSoon) {
    Start({.name = "soon", .notAfter = DaysFromNow(10)});
    Expect(CheckAt(plain, LdapSecurity::StartTls), Status::Warn, ": certificate ends in 10 days; renew it");
    ldap.base = "dc=other,dc=example";
    EXPECT_EQ(CheckAt(plain, LdapSecurity::StartTls).status, Status::Fail) << "the worse of the two";
}

TEST_F(RealLdap, HasACertificateOfAnUnknownIssuer) {
    Start();
    certificates.Make({.name = "stranger"});
    ldap.trust.caFile = certificates.PathOf("stranger");
    Expect(CheckAt(plain, LdapSecurity::StartTls), Status::Fail,
           ": certificate's issuer is not trusted here; check the server's chain, or name its root as caFile");
}

TEST_F(RealLdap, DoesNotSpeakTls) {
    Start();
    const std::uint16_t other = loopback::FreePort();
    support::WriteFile(folder / "plain.conf", "include /etc/ldap/schema/core.schema\n");
    support::Child without(
        {folder / "slapd", "-f", folder / "plain.conf", "-d", "0", "-h", "ldap://127.0.0.1:" + std::to_string(other)});
    ASSERT_TRUE(support::Eventually([other] { return loopback::TakesConnections(other); })) << without.Output();
    Expect(CheckAt(other, LdapSecurity::StartTls), Status::Fail, std::string(": StartTLS: Protocol error") + kAdvice);
}

TEST_F(Ldap, NothingNamedIsUnknown) {
    const Finding finding = CheckLdap(settings);
    EXPECT_EQ(finding.status, Status::Unknown);
    EXPECT_EQ(finding.text, "not known: name Call/LdapServer in the room's file");
}

TEST_F(Ldap, CredentialsThatOthersMayReadAreNotUsed) {
    ldap.credentials = folder / "credentials";
    support::WriteFile(ldap.credentials, "user = cn=room1\npassword = s3cret\n");
    ASSERT_EQ(chmod(ldap.credentials.c_str(), 0644), 0);
    std::string seen;
    const Finding finding = CheckAt(loopback::Listen().port, LdapSecurity::StartTls);
    EXPECT_EQ(finding.status, Status::Unknown);
    EXPECT_EQ(finding.text, "not tried: " + ldap.credentials +
                                ": others may read or write it; chmod it to 0600, or 0640 if it is root's");
}

TEST_F(Ldap, NobodyThereIsAFailure) {
    const auto closed = loopback::BindStream();
    Expect(CheckAt(closed.port, LdapSecurity::StartTls), Status::Fail, std::string(": Connection refused") + kAdvice);
}

TEST_F(Ldap, ASilentServerIsGivenUp) {
    settings.limit = std::chrono::seconds(1);
    const auto silent = loopback::Listen();
    Expect(CheckAt(silent.port, LdapSecurity::StartTls), Status::Fail,
           std::string(": StartTLS: no answer in 1 s") + kAdvice);
    Expect(CheckAt(silent.port, LdapSecurity::Tls), Status::Fail,
           std::string(": TLS: no end of the TLS handshake in 1 s") + kAdvice);
    Expect(CheckAt(silent.port, LdapSecurity::None), Status::Fail, std::string(": bind: no answer in 1 s") + kAdvice);
}

// The answers of the protocol as they are sent: message 1 is the bind, 2 the search.
const std::string kBound("\x30\x0c\x02\x01\x01\x61\x07\x0a\x01\x00\x04\x00\x04\x00", 14);
const std::string kEntry(
    "\x30\x0b\x02\x01\x02\x64\x06\x04\x02"
    "a="
    "\x30\x00",
    13);
const std::string kDone("\x30\x0c\x02\x01\x02\x65\x07\x0a\x01\x00\x04\x00\x04\x00", 14);

// A server that sends one text for the bind and another for the search.
auto Script(const std::string& toBind, const std::string& toSearch) {
    return [toBind, toSearch](int peer) {
        (void)loopback::ReadSome(peer);
        (void)loopback::Send(peer, toBind);
        (void)loopback::ReadSome(peer);
        (void)loopback::Send(peer, toSearch);
        (void)loopback::ReadSome(peer);
    };
}

TEST_F(Ldap, TheScriptsOfTheseTestsAreRight) {
    const auto good = Server::OnStream(Script(kBound, kEntry + kDone));
    Expect(CheckAt(good.Port(), LdapSecurity::None), Status::Success, ": anonymous bind, base found");
}

TEST_F(Ldap, AServerThatShowsNoEntryIsAFailure) {
    const auto empty = Server::OnStream(Script(kBound, kDone));
    Expect(CheckAt(empty.Port(), LdapSecurity::None), Status::Fail,
           ": anonymous bind, but the base is not shown; check base and rights");
}

TEST_F(Ldap, ReferralsRefusalsAndOtherCodesAreTold) {
    const auto withCode = [](std::string done, char code) {
        done[9] = code;
        return done;
    };
    const auto check = [&](const std::string& bind, const std::string& search) {
        const auto scripted = Server::OnStream(Script(bind, search));
        return CheckAt(scripted.Port(), LdapSecurity::None);
    };
    Finding finding = check(kBound, withCode(kDone, 10));
    Expect(finding, Status::Warn, ": anonymous bind, and sends elsewhere for the base; name that server");
    finding = check(kBound, withCode(kDone, 50));
    Expect(finding, Status::Fail, ": anonymous bind, but may not search the base; check credentials and rights");
    finding = check(kBound, withCode(kDone, 51));
    Expect(finding, Status::Fail, std::string(": search: Server is busy") + kAdvice);
    finding = check(withCode(kBound, 52), "");
    Expect(finding, Status::Fail, std::string(": bind: Server is unavailable") + kAdvice);
    finding = check(withCode(kBound, 49), "");
    Expect(finding, Status::Fail, ": refuses the credentials; check whether an anonymous bind is meant");
}

TEST_F(Ldap, AServerThatNeverEndsItsAnswersIsGivenUp) {
    const auto endless = Server::OnStream([](int peer) {
        (void)loopback::ReadSome(peer);
        (void)loopback::Send(peer, kBound);
        (void)loopback::ReadSome(peer);
        while (loopback::Send(peer, kEntry)) {
        }
    });
    Expect(CheckAt(endless.Port(), LdapSecurity::None), Status::Fail,
           ": sends answer after answer to a search for one entry; check the server");
}

TEST_F(Ldap, AnswersToOtherQuestionsEndWithTheTime) {
    settings.limit = std::chrono::seconds(1);
    const auto confused = Server::OnStream([](int peer) {
        (void)loopback::ReadSome(peer);
        std::string other = kBound;
        other[4] = 0x55;
        while (loopback::Send(peer, other)) {
            std::this_thread::sleep_for(1ms);
        }
    });
    Expect(CheckAt(confused.Port(), LdapSecurity::None), Status::Fail,
           std::string(": bind: no answer in 1 s") + kAdvice);
}

TEST_F(Ldap, AnAnswerWithoutEndIsNotRead) {
    const auto huge = Server::OnStream([](int peer) {
        (void)loopback::ReadSome(peer);
        (void)loopback::Send(peer, std::string("\x30\x84\x7f\xff\xff\xff\x02\x01\x01\x61", 10));
        while (loopback::Send(peer, std::string(65536, 'x'))) {
        }
    });
    Expect(CheckAt(huge.Port(), LdapSecurity::None), Status::Fail,
           std::string(": bind: what it sends is no LDAP, or is too long") + kAdvice);
}

TEST_F(Ldap, AServerThatAnswersByteByByteIsGivenUp) {
    settings.limit = std::chrono::seconds(1);
    const auto slow = Server::OnStream([](int peer) {
        (void)loopback::ReadSome(peer);
        for (std::size_t i = 0; i < kBound.size() && loopback::Send(peer, kBound.substr(i, 1)); ++i) {
            std::this_thread::sleep_for(200ms);
        }
    });
    Expect(CheckAt(slow.Port(), LdapSecurity::None), Status::Fail, std::string(": bind: no answer in 1 s") + kAdvice);
}

// The beginning of a long handshake message, a byte now and then.
TEST_F(Ldap, AHandshakeByteByByteIsGivenUp) {
    settings.limit = std::chrono::seconds(1);
    const auto slow = Server::OnStream([](int peer) {
        (void)loopback::ReadSome(peer);
        bool sent = loopback::Send(peer, std::string("\x16\x03\x03\x40\x00\x02\x00\x3f\xfc", 9));
        while (sent) {
            std::this_thread::sleep_for(20ms);
            sent = loopback::Send(peer, "x");
        }
    });
    Expect(CheckAt(slow.Port(), LdapSecurity::Tls), Status::Fail,
           std::string(": TLS: no end of the TLS handshake in 1 s") + kAdvice);
}

TEST_F(Ldap, AServerOfAnotherKindIsAFailure) {
    const auto http = Server::OnStream([](int peer) {
        (void)loopback::ReadSome(peer);
        (void)loopback::Send(peer, "HTTP/1.1 400 Bad Request\r\nConnection: close\r\n\r\n");
    });
    Expect(CheckAt(http.Port(), LdapSecurity::None), Status::Fail,
           std::string(": bind: ends the connection") + kAdvice);
    const auto brief = Server::OnStream([](int peer) { (void)loopback::ReadSome(peer); });
    Expect(CheckAt(brief.Port(), LdapSecurity::None), Status::Fail,
           std::string(": bind: ends the connection") + kAdvice);
}

}  // namespace
