// SIP servers: real ones of sipp(1), behind socat(1) where there is TLS, and scripted ones that misbehave.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "call/call.h"
#include "call/sip_options.h"
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

// A header of a request, with its name.
std::string HeaderOf(const std::string& request, const std::string& name) {
    const std::size_t at = request.find("\r\n" + name + ":");
    return at == std::string::npos ? "" : request.substr(at + 2, request.find("\r\n", at + 2) - at);
}

// The answer of a server that works, with the headers that belong to the request.
std::string AnswerTo(const std::string& request, const std::string& status = "200 OK") {
    return "SIP/2.0 " + status + "\r\n" + HeaderOf(request, "Via") + HeaderOf(request, "From") +
           HeaderOf(request, "To") + HeaderOf(request, "Call-ID") + HeaderOf(request, "CSeq") +
           "Content-Length: 0\r\n\r\n";
}

std::string Replaced(std::string text, const std::string& what, const std::string& by) {
    const std::size_t at = text.find(what);
    EXPECT_NE(at, std::string::npos) << what;
    return at == std::string::npos ? text : text.replace(at, what.size(), by);
}

class Sip : public testing::Test {
protected:
    Finding CheckAt(std::uint16_t port, SipTransport transport, std::chrono::milliseconds limit = 30s) {
        server.transport = transport;
        server.host = {"127.0.0.1", port};
        name = server.host.Text() + "/" + std::string(TransportWord(transport));
        return CheckSipServer(server, Deadline(limit));
    }

    void Expect(const Finding& finding, Status status, const std::string& text) const {
        EXPECT_EQ(finding.status, status) << finding.text;
        EXPECT_EQ(finding.text, name + text);
    }

    SipServer server;
    std::string name;
};

// A real peer that answers each OPTIONS with this status.
class RealSip : public Sip {
protected:
    std::uint16_t Start(const std::string& status, const std::string& transport) {
        const std::string scenario = folder / "options.xml";
        support::WriteFile(scenario, R"(<?xml version="1.0" encoding="ISO-8859-1"?>
<scenario name="OPTIONS">
  <recv request="OPTIONS"/>
  <send><![CDATA[
    SIP/2.0 )" + status + R"(
    [last_Via:]
    [last_From:]
    [last_To:];tag=[pid]
    [last_Call-ID:]
    [last_CSeq:]
    Contact: <sip:[local_ip]:[local_port];transport=[transport]>
    Allow: INVITE, ACK, CANCEL, BYE, OPTIONS
    Content-Length: 0

  ]]></send>
</scenario>
)");
        const std::uint16_t port = loopback::FreePort();
        peers.push_back(std::make_unique<support::Child>(
            std::vector<std::string>{SIPP_PROGRAM, "-sf", scenario, "-t", transport, "-i", "127.0.0.1", "-p",
                                     std::to_string(port), "-nostdin", "-timeout", "100"}));
        return port;
    }

    // In front of it, with TLS.
    std::uint16_t StartTlsBefore(std::uint16_t inner, const std::string& certificate) {
        const std::uint16_t port = loopback::FreePort();
        peers.push_back(std::make_unique<support::Child>(std::vector<std::string>{
            SOCAT_PROGRAM,
            "OPENSSL-LISTEN:" + std::to_string(port) + ",bind=127.0.0.1,reuseaddr,fork,verify=0,cert=" +
                certificates.PathOf(certificate) + ",key=" + certificates.KeyOf(certificate),
            "TCP:127.0.0.1:" + std::to_string(inner)}));
        EXPECT_TRUE(support::Eventually([port] { return loopback::TakesConnections(port); }));
        return port;
    }

    // Until it answers: over UDP nothing else tells that it is there.
    Finding CheckOnceThere(std::uint16_t port, SipTransport transport) {
        Finding finding;
        EXPECT_TRUE(support::Eventually([&] {
            finding = CheckAt(port, transport, 5s);
            return finding.text.find("Connection refused") == std::string::npos;
        }));
        return finding;
    }

    support::TempFolder folder;
    loopback::Certificates certificates;
    std::vector<std::unique_ptr<support::Child>> peers;
};

TEST_F(RealSip, AnswersOverUdp) {
    Expect(CheckOnceThere(Start("200 OK", "u1"), SipTransport::Udp), Status::Success, " answers 200 OK");
}

TEST_F(RealSip, AnswersOverTcp) {
    Expect(CheckOnceThere(Start("200 OK", "t1"), SipTransport::Tcp), Status::Success, " answers 200 OK");
}

TEST_F(RealSip, AsksForCredentialsAndIsAlive) {
    Expect(CheckOnceThere(Start("407 Proxy Authentication Required", "u1"), SipTransport::Udp), Status::Success,
           " answers 407 Proxy Authentication Required");
}

TEST_F(RealSip, DoesNotKnowTheRoom) {
    server.user = "room1";
    Expect(CheckOnceThere(Start("404 Not Found", "t1"), SipTransport::Tcp), Status::Warn,
           " answers 404 Not Found; check the room's user");
}

TEST_F(RealSip, CannotServe) {
    Expect(CheckOnceThere(Start("503 Service Unavailable", "u1"), SipTransport::Udp), Status::Fail,
           " answers 503 Service Unavailable; the server cannot serve now: check it");
}

TEST_F(RealSip, AnswersOverTls) {
    certificates.Make({.name = "good"});
    const std::uint16_t inner = Start("200 OK", "t1");
    (void)CheckOnceThere(inner, SipTransport::Tcp);
    server.trust.caFile = certificates.PathOf("good");
    Expect(CheckAt(StartTlsBefore(inner, "good"), SipTransport::Tls), Status::Success, " answers 200 OK");
}

TEST_F(RealSip, HasACertificateThatEndsSoon) {
    certificates.Make({.name = "soon", .notAfter = DaysFromNow(10)});
    const std::uint16_t inner = Start("200 OK", "t1");
    (void)CheckOnceThere(inner, SipTransport::Tcp);
    server.trust.caFile = certificates.PathOf("soon");
    Expect(CheckAt(StartTlsBefore(inner, "soon"), SipTransport::Tls), Status::Warn,
           ": certificate ends in 10 days; renew it");
}

TEST_F(RealSip, HasACertificateThatHasEnded) {
    certificates.Make({.name = "expired", .notBefore = DaysFromNow(-30), .notAfter = DaysFromNow(-5)});
    server.trust.caFile = certificates.PathOf("expired");
    Expect(CheckAt(StartTlsBefore(loopback::FreePort(), "expired"), SipTransport::Tls), Status::Fail,
           ": certificate expired 4 days ago; renew it");
}

TEST_F(Sip, NobodyThereIsAFailure) {
    const auto closedStream = loopback::BindStream();
    Expect(CheckAt(closedStream.port, SipTransport::Tcp), Status::Fail, std::string(": Connection refused") + kAdvice);
    Expect(CheckAt(closedStream.port, SipTransport::Tls), Status::Fail, std::string(": Connection refused") + kAdvice);
    Expect(CheckAt(loopback::FreePort(), SipTransport::Udp), Status::Fail,
           std::string(": Connection refused") + kAdvice);
}

TEST_F(Sip, ASilentServerIsGivenUp) {
    const auto datagrams = loopback::BindDatagram();
    Expect(CheckAt(datagrams.port, SipTransport::Udp, 300ms), Status::Fail,
           std::string(": no answer to OPTIONS in 0.3 s") + kAdvice);
    const auto stream = loopback::Listen();
    Expect(CheckAt(stream.port, SipTransport::Tcp, 300ms), Status::Fail, std::string(": no answer in 0.3 s") + kAdvice);
    Expect(CheckAt(stream.port, SipTransport::Tls, 300ms), Status::Fail,
           std::string(": TLS: no end of the TLS handshake in 0.3 s") + kAdvice);
}

TEST_F(Sip, ALostDatagramIsSentAgain) {
    std::vector<std::string> seen;
    std::mutex lock;
    const auto deaf = Server::OnDatagrams([&](int fd) {
        const auto datagram = loopback::ReadDatagram(fd);
        const std::scoped_lock guard(lock);
        seen.push_back(datagram.text);
        if (seen.size() == 2) {
            datagram.answer(AnswerTo(datagram.text));
        }
    });
    Expect(CheckAt(deaf.Port(), SipTransport::Udp), Status::Success, " answers 200 OK");
    const std::scoped_lock guard(lock);
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_EQ(seen[0], seen[1]) << "the same request";
}

TEST_F(Sip, AnswersToOtherRequestsAreIgnored) {
    const auto confused = Server::OnDatagrams([](int fd) {
        const auto datagram = loopback::ReadDatagram(fd);
        if (datagram.text.empty()) {
            return;
        }
        const std::string wrong = AnswerTo(datagram.text, "503 Wrong");
        datagram.answer(Replaced(wrong, "branch=z9hG4bK", "branch=z9hG4bKx"));
        datagram.answer(Replaced(wrong, "\r\nCall-ID: ", "\r\nCall-ID: x"));
        datagram.answer(Replaced(wrong, "1 OPTIONS", "2 OPTIONS"));
        datagram.answer(Replaced(wrong, "1 OPTIONS", "1 INVITE"));
        datagram.answer(Replaced(wrong, ";tag=", ";tag=x"));
        datagram.answer("");
        datagram.answer("garbage");
        datagram.answer(AnswerTo(datagram.text));
    });
    Expect(CheckAt(confused.Port(), SipTransport::Udp), Status::Success, " answers 200 OK");
}

TEST_F(Sip, OnlyAnswersToOtherRequestsAreNoAnswer) {
    const auto confused = Server::OnDatagrams([](int fd) {
        const auto datagram = loopback::ReadDatagram(fd);
        if (!datagram.text.empty()) {
            datagram.answer(Replaced(AnswerTo(datagram.text), "branch=z9hG4bK", "branch=z9hG4bKx"));
        }
    });
    Expect(CheckAt(confused.Port(), SipTransport::Udp, 300ms), Status::Fail,
           ": sends messages, but none that answers OPTIONS; check the server and the port");
}

TEST_F(Sip, AFloodOfOtherMessagesIsGivenUpBeforeTheTimeIsOver) {
    const auto flood = Server::OnStream([](int peer) {
        const std::string request = loopback::ReadUntil(peer, "\r\n\r\n");
        const std::string other = Replaced(AnswerTo(request), "branch=z9hG4bK", "branch=z9hG4bKx");
        while (loopback::Send(peer, other)) {
        }
    });
    Expect(CheckAt(flood.Port(), SipTransport::Tcp, 1h), Status::Fail,
           ": sends messages, but none that answers OPTIONS; check the server and the port");
}

TEST_F(Sip, AProvisionalAnswerIsNotTheLast) {
    const auto slow = Server::OnDatagrams([](int fd) {
        const auto datagram = loopback::ReadDatagram(fd);
        if (!datagram.text.empty()) {
            datagram.answer(AnswerTo(datagram.text, "100 Trying"));
            datagram.answer(AnswerTo(datagram.text));
        }
    });
    Expect(CheckAt(slow.Port(), SipTransport::Udp), Status::Success, " answers 200 OK");
    const auto trying = Server::OnDatagrams([](int fd) {
        const auto datagram = loopback::ReadDatagram(fd);
        if (!datagram.text.empty()) {
            datagram.answer(AnswerTo(datagram.text, "100 Trying"));
        }
    });
    Expect(CheckAt(trying.Port(), SipTransport::Udp, 300ms), Status::Warn,
           " answers 100, and then: no answer to OPTIONS in 0.3 s; check the server");
}

TEST_F(Sip, AnAnswerInPiecesIsPutTogether) {
    const auto pieces = Server::OnStream([](int peer) {
        const std::string request = loopback::ReadUntil(peer, "\r\n\r\n");
        const std::string all =
            "\r\n\r\n" + AnswerTo(request, "100 Trying") +
            Replaced(AnswerTo(request), "Content-Length: 0\r\n\r\n", "Content-Length: 3\r\n\r\nabc");
        for (const char c : all) {
            (void)loopback::Send(peer, {&c, 1});
        }
        (void)loopback::ReadSome(peer);
    });
    Expect(CheckAt(pieces.Port(), SipTransport::Tcp), Status::Success, " answers 200 OK");
}

TEST_F(Sip, AServerThatAnswersByteByByteIsGivenUp) {
    const auto slow = Server::OnStream([](int peer) {
        const std::string answer = AnswerTo(loopback::ReadUntil(peer, "\r\n\r\n"));
        for (std::size_t i = 0; i < answer.size() && loopback::Send(peer, answer.substr(i, 1)); ++i) {
            std::this_thread::sleep_for(50ms);
        }
    });
    Expect(CheckAt(slow.Port(), SipTransport::Tcp, 500ms), Status::Fail, std::string(": no answer in 0.5 s") + kAdvice);
}

TEST_F(Sip, ALargeAnswerIsTakenAndATooLargeOneIsNot) {
    const auto withBytes = [](std::size_t bytes) {
        return [bytes](int peer) {
            const std::string answer = AnswerTo(loopback::ReadUntil(peer, "\r\n\r\n"));
            const std::size_t more = bytes - answer.size() - std::string("X: \r\n").size();
            (void)loopback::Send(
                peer, Replaced(answer, "Content-Length", "X: " + std::string(more, 'x') + "\r\nContent-Length"));
            (void)loopback::ReadSome(peer);
        };
    };
    const auto large = Server::OnStream(withBytes(64UL * 1024UL));
    Expect(CheckAt(large.Port(), SipTransport::Tcp), Status::Success, " answers 200 OK");
    const auto tooLarge = Server::OnStream(withBytes(64UL * 1024UL + 1));
    Expect(CheckAt(tooLarge.Port(), SipTransport::Tcp), Status::Fail,
           ": what it sends is no SIP, or is too long; check the server and the port");
}

TEST_F(Sip, TheLargestDatagramIsTaken) {
    const auto large = Server::OnDatagrams([](int fd) {
        const auto datagram = loopback::ReadDatagram(fd);
        if (!datagram.text.empty()) {
            const std::string answer = AnswerTo(datagram.text);
            datagram.answer(Replaced(answer, "Content-Length",
                                     "X: " + std::string(65507 - answer.size() - 5, 'x') + "\r\nContent-Length"));
        }
    });
    Expect(CheckAt(large.Port(), SipTransport::Udp), Status::Success, " answers 200 OK");
}

TEST_F(Sip, AServerOfAnotherKindIsAFailure) {
    const auto http = Server::OnStream([](int peer) {
        (void)loopback::ReadSome(peer);
        (void)loopback::Send(peer, "HTTP/1.1 400 Bad Request\r\nConnection: close\r\n\r\n");
    });
    Expect(CheckAt(http.Port(), SipTransport::Tcp), Status::Fail,
           ": what it sends is no SIP, or is too long; check the server and the port");
    const auto brief = Server::OnStream([](int peer) { (void)loopback::ReadUntil(peer, "\r\n\r\n"); });
    Expect(CheckAt(brief.Port(), SipTransport::Tcp), Status::Fail,
           std::string(": ends the connection without an answer") + kAdvice);
}

TEST_F(Sip, EachRequestIsAnother) {
    std::vector<std::string> seen;
    std::mutex lock;
    const auto good = Server::OnDatagrams([&](int fd) {
        const auto datagram = loopback::ReadDatagram(fd);
        if (!datagram.text.empty()) {
            {
                const std::scoped_lock guard(lock);
                seen.push_back(datagram.text);
            }
            datagram.answer(AnswerTo(datagram.text));
        }
    });
    server.user = "room1";
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(CheckAt(good.Port(), SipTransport::Udp).status, Status::Success);
    }
    const std::scoped_lock guard(lock);
    ASSERT_EQ(seen.size(), 2U);
    for (const char* header : {"Via", "Call-ID", "From"}) {
        EXPECT_NE(HeaderOf(seen[0], header), HeaderOf(seen[1], header)) << header;
    }
    EXPECT_TRUE(seen[0].starts_with("OPTIONS sip:room1@127.0.0.1:" + std::to_string(good.Port()) + " SIP/2.0\r\n"))
        << seen[0];
}

TEST_F(Sip, SeveralServersMakeOneFinding) {
    CallSettings settings;
    const Finding none = CheckSip(settings);
    EXPECT_EQ(none.status, Status::Unknown);
    EXPECT_EQ(none.text, "not known: name Call/SipServer in the room's file");
    const auto good = Server::OnDatagrams([](int fd) {
        const auto datagram = loopback::ReadDatagram(fd);
        if (!datagram.text.empty()) {
            datagram.answer(AnswerTo(datagram.text));
        }
    });
    const auto silent = loopback::BindDatagram();
    settings.limit = std::chrono::seconds(1);
    server.host = {"127.0.0.1", silent.port};
    settings.sipServers = {server, server};
    settings.sipServers[1].host.port = good.Port();
    const Finding finding = CheckSip(settings);
    EXPECT_EQ(finding.status, Status::Fail);
    EXPECT_EQ(finding.text, "1 of 2 SIP servers good; 127.0.0.1:" + std::to_string(silent.port) +
                                "/udp: no answer to OPTIONS in 0.5 s; check the server and the network")
        << "the silent one leaves the other its time";
}

}  // namespace
