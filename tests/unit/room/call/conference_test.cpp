// Conference servers: real ones of openssl-s_server(1) with certificates of all kinds, and scripted ones that
// misbehave.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "call/call.h"
#include "certificates.h"
#include "loopback.h"
#include "support/child.h"
#include "support/eventually.h"

using namespace room;
using namespace std::chrono_literals;
using loopback::CertificateRequest;
using loopback::DaysFromNow;

namespace {

// A root, and what the tests ask for below it; made once.
class Conference : public testing::Test {
protected:
    static void SetUpTestSuite() {
        certificates = std::make_unique<loopback::Certificates>();
        certificates->Make({.name = "root", .subject = "/CN=Test root", .altNames = "", .days = 3650, .isCa = true});
    }
    static void TearDownTestSuite() { certificates.reset(); }

    // Starts a server with this certificate and looks at it.
    Finding Check(const std::string& name, const std::vector<std::string>& more = {}) {
        std::vector<std::string> command{OPENSSL_PROGRAM, "s_server",
                                         "-accept",       "127.0.0.1:0",
                                         "-cert",         certificates->PathOf(name),
                                         "-key",          certificates->KeyOf(name),
                                         "-www"};
        command.insert(command.end(), more.begin(), more.end());
        server = std::make_unique<support::Child>(command);
        EXPECT_TRUE(support::Eventually([&] { return PortOf(server->Output()) != 0; })) << server->Output();
        return CheckAt(PortOf(server->Output()));
    }

    Finding CheckAt(std::uint16_t port, std::chrono::milliseconds limit = 30s) {
        name_ = "127.0.0.1:" + std::to_string(port);
        conference.host = {"127.0.0.1", port};
        return CheckConferenceServer(conference, Deadline(limit));
    }

    void Expect(const Finding& finding, Status status, const std::string& text) const {
        EXPECT_EQ(finding.status, status) << finding.text;
        EXPECT_EQ(finding.text, name_ + text);
    }

    static std::unique_ptr<loopback::Certificates> certificates;
    ConferenceServer conference{.host = {}, .tls = true, .trust = {.name = "", .caFile = certificates->PathOf("root")}};
    std::unique_ptr<support::Child> server;

private:
    static std::uint16_t PortOf(const std::string& output) {
        const std::string mark = "ACCEPT 127.0.0.1:";
        const std::size_t at = output.find(mark);
        if (at == std::string::npos || output.find('\n', at) == std::string::npos) {
            return 0;
        }
        return static_cast<std::uint16_t>(std::stoul(output.substr(at + mark.size())));
    }

    std::string name_;
};

std::unique_ptr<loopback::Certificates> Conference::certificates;

TEST_F(Conference, AGoodCertificateIsGood) {
    certificates->Make({.name = "good", .notAfter = DaysFromNow(100)}, "root");
    Expect(Check("good"), Status::Success, ": TLSv1.3, certificate good for 100 days");
}

TEST_F(Conference, TheVersionOfTlsIsSaid) {
    certificates->Make({.name = "old", .notAfter = DaysFromNow(100)}, "root");
    Expect(Check("old", {"-tls1_2"}), Status::Success, ": TLSv1.2, certificate good for 100 days");
}

TEST_F(Conference, AnOldVersionOfTlsIsAFailure) {
    certificates->Make({.name = "ancient"}, "root");
    Expect(Check("ancient", {"-tls1_1", "-cipher", "DEFAULT@SECLEVEL=0"}), Status::Fail,
           ": TLS: tlsv1 alert protocol version; check the server and the network");
}

TEST_F(Conference, ACertificateThatEndsSoonIsAWarningAndThenAFailure) {
    certificates->Make({.name = "soon", .notAfter = DaysFromNow(10)}, "root");
    Expect(Check("soon"), Status::Warn, ": certificate ends in 10 days; renew it");
    certificates->Make({.name = "sooner", .notAfter = DaysFromNow(2)}, "root");
    Expect(Check("sooner"), Status::Fail, ": certificate ends in 2 days; renew it");
}

TEST_F(Conference, TheEndOfTheIssuersCertificateCountsToo) {
    certificates->Make(
        {.name = "ca", .subject = "/CN=Test CA", .altNames = "", .notAfter = DaysFromNow(5), .isCa = true}, "root");
    certificates->Make({.name = "below"}, "ca");
    Expect(Check("below", {"-cert_chain", certificates->PathOf("ca")}), Status::Warn,
           ": certificate ends in 5 days; renew it");
}

TEST_F(Conference, AnExpiredCertificateIsAFailure) {
    certificates->Make({.name = "expired", .notBefore = DaysFromNow(-30), .notAfter = DaysFromNow(-5)}, "root");
    Expect(Check("expired"), Status::Fail, ": certificate expired 4 days ago; renew it");
}

TEST_F(Conference, ACertificateOfTomorrowIsAFailure) {
    certificates->Make({.name = "early", .notBefore = DaysFromNow(1)}, "root");
    Expect(Check("early"), Status::Fail, ": certificate is not valid yet; check this computer's clock");
}

TEST_F(Conference, AnExpiredIssuerIsAFailure) {
    certificates->Make({.name = "oldca",
                        .subject = "/CN=Old CA",
                        .altNames = "",
                        .notBefore = DaysFromNow(-30),
                        .notAfter = DaysFromNow(-1),
                        .isCa = true},
                       "root");
    certificates->Make({.name = "belowold"}, "oldca");
    Expect(Check("belowold", {"-cert_chain", certificates->PathOf("oldca")}), Status::Fail,
           ": a certificate of the chain has expired; renew it");
}

TEST_F(Conference, ACertificateForAnotherNameIsAFailure) {
    certificates->Make({.name = "other", .altNames = "DNS:a.example,DNS:b.example,IP:192.0.2.1,DNS:c.example"}, "root");
    Expect(Check("other"), Status::Fail,
           ": certificate is for a.example, b.example, 192.0.2.1 ..., not for 127.0.0.1; check the server and the "
           "network");
    conference.trust.name = "b.example";
    EXPECT_EQ(Check("other").status, Status::Success) << "the name that is expected";
    conference.trust.name = "z.example";
    Expect(Check("other"), Status::Fail,
           ": certificate is for a.example, b.example, 192.0.2.1 ..., not for z.example; check the server and the "
           "network");
}

TEST_F(Conference, ACertificateWithoutNamesIsForItsSubject) {
    certificates->Make({.name = "nameless", .subject = "/CN=only.example", .altNames = ""}, "root");
    Expect(Check("nameless"), Status::Fail,
           ": certificate is for only.example, not for 127.0.0.1; check the server and the network");
}

TEST_F(Conference, ACertificateSignedByItselfIsAFailureUnlessItIsNamed) {
    certificates->Make({.name = "self"});
    Expect(Check("self"), Status::Fail, ": certificate signed by itself; name it as caFile if it is meant");
    conference.trust.caFile = certificates->PathOf("self");
    EXPECT_EQ(Check("self").status, Status::Success);
}

TEST_F(Conference, AnUnknownIssuerIsAFailure) {
    certificates->Make({.name = "stranger", .subject = "/CN=Stranger", .altNames = "", .isCa = true});
    certificates->Make({.name = "strange"}, "stranger");
    Expect(Check("strange"), Status::Fail,
           ": certificate's issuer is not trusted here; check the server's chain, or name its root as caFile");
    conference.trust.caFile.clear();
    EXPECT_EQ(CheckAt(conference.host.port).status, Status::Fail) << "the system does not know it either";
}

// Two that have signed each other lead to no root.
TEST_F(Conference, AChainInALoopIsAFailure) {
    const CertificateRequest first{.name = "loop1", .subject = "/CN=Loop 1", .altNames = "", .isCa = true};
    const CertificateRequest second{.name = "loop2", .subject = "/CN=Loop 2", .altNames = "", .isCa = true};
    certificates->Make(first);
    certificates->Make(second, "loop1");
    certificates->MakeAgain(first, "loop2");
    certificates->Make({.name = "looped"}, "loop1");
    const std::string chain = certificates->Chain("loop", {"loop1", "loop2", "loop1"});
    Expect(Check("looped", {"-cert_chain", chain}), Status::Fail,
           ": certificate's issuer is not trusted here; check the server's chain, or name its root as caFile");
}

TEST_F(Conference, AChainThatIsTooLongIsAFailure) {
    std::string issuer = "root";
    std::vector<std::string> names;
    for (int i = 0; i < 12; ++i) {
        const std::string name = "link" + std::to_string(i);
        certificates->Make({.name = name, .subject = "/CN=" + name, .altNames = "", .isCa = true}, issuer);
        issuer = name;
        names.insert(names.begin(), name);
    }
    certificates->Make({.name = "deep"}, issuer);
    Expect(Check("deep", {"-cert_chain", certificates->Chain("links", names)}), Status::Fail,
           ": certificate chain is too long; check the server's chain");
}

TEST_F(Conference, AChainOfManyBytesIsNotRead) {
    certificates->Make({.name = "large"}, "root");
    const std::string chain = certificates->Chain("hundreds", std::vector<std::string>(210, "root"));
    Expect(Check("large", {"-cert_chain", chain, "-tls1_2"}), Status::Fail,
           ": TLS: excessive message size; check the server and the network");
}

TEST_F(Conference, AServerWithoutTlsIsAFailure) {
    const auto http = loopback::Server::OnStream([](int peer) {
        (void)loopback::ReadSome(peer);
        (void)loopback::Send(peer, "HTTP/1.1 400 Bad Request\r\n\r\n");
    });
    Expect(CheckAt(http.Port()), Status::Fail, ": TLS: wrong version number; check the server and the network");
}

TEST_F(Conference, AServerThatHangsUpIsAFailure) {
    const auto brief = loopback::Server::OnStream([](int peer) { (void)loopback::ReadSome(peer); });
    Expect(CheckAt(brief.Port()), Status::Fail,
           ": TLS: unexpected eof while reading; check the server and the network");
}

TEST_F(Conference, ASilentServerIsGivenUp) {
    const auto silent = loopback::Listen();
    Expect(CheckAt(silent.port, 300ms), Status::Fail,
           ": TLS: no end of the TLS handshake in 0.3 s; check the server and the network");
}

// The library would write to a connection that is gone, and the signal end the process.
TEST_F(Conference, ABrokenConnectionEndsNoProcess) {
    (void)std::signal(SIGPIPE, SIG_DFL);
    const auto silent = loopback::Listen();
    (void)CheckAt(silent.port, 100ms);
    EXPECT_EQ(std::signal(SIGPIPE, SIG_IGN), SIG_IGN);
}

// The beginning of a long handshake message, a byte now and then.
TEST_F(Conference, AServerThatSpeaksByteByByteIsGivenUp) {
    const auto slow = loopback::Server::OnStream([](int peer) {
        (void)loopback::ReadSome(peer);
        bool sent = loopback::Send(peer, std::string("\x16\x03\x03\x40\x00\x02\x00\x3f\xfc", 9));
        while (sent) {
            std::this_thread::sleep_for(20ms);
            sent = loopback::Send(peer, "x");
        }
    });
    Expect(CheckAt(slow.Port(), 500ms), Status::Fail,
           ": TLS: no end of the TLS handshake in 0.5 s; check the server and the network");
}

TEST_F(Conference, NobodyThereIsAFailure) {
    const auto closed = loopback::BindStream();
    Expect(CheckAt(closed.port), Status::Fail, ": Connection refused; check the server and the network");
}

TEST_F(Conference, AFileWithoutCertificatesIsSaid) {
    const auto silent = loopback::Listen();
    for (const char* file : {"none", "ca.cnf"}) {
        conference.trust.caFile = certificates->Path(file);
        const Finding finding = CheckAt(silent.port);
        EXPECT_NE(finding.text.find("cannot be read or holds no certificate"), std::string::npos) << finding.text;
    }
}

TEST_F(Conference, WithoutTlsTheConnectionIsEnough) {
    const auto open = loopback::Listen();
    conference.tls = false;
    Expect(CheckAt(open.port), Status::Success, " takes connections");
}

TEST_F(Conference, SeveralServersMakeOneFinding) {
    const auto open = loopback::Listen();
    const auto closed = loopback::BindStream();
    CallSettings settings;
    const Finding none = CheckConferenceServers(settings);
    EXPECT_EQ(none.status, Status::Unknown);
    EXPECT_EQ(none.text, "not known: name Call/ConferenceServer in the room's file");
    settings.conferenceServers = {{.host = {"127.0.0.1", open.port}, .tls = false, .trust = {}},
                                  {.host = {"127.0.0.1", open.port}, .tls = false, .trust = {}}};
    EXPECT_EQ(CheckConferenceServers(settings).status, Status::Success);
    EXPECT_EQ(CheckConferenceServers(settings).text, "2 of 2 conference servers good");
    settings.conferenceServers[1].host.port = closed.port;
    const Finding finding = CheckConferenceServers(settings);
    EXPECT_EQ(finding.status, Status::Fail);
    EXPECT_EQ(finding.text, "1 of 2 conference servers good; 127.0.0.1:" + std::to_string(closed.port) +
                                ": Connection refused; check the server and the network");
}

}  // namespace
