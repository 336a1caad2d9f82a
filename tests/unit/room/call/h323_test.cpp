// Gatekeepers and peers, scripted.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>

#include "call/call.h"
#include "loopback.h"

using namespace room;
using loopback::Server;

namespace {

constexpr const char* kAdvice = "; check the server and the network";

// A confirm or reject (its first byte) to a request.
std::string AnswerTo(const std::string& request, char first) {
    const std::string protocol("\x06\x00\x08\x91\x4a\x00\x04", 7);
    return std::string(1, first) + std::string(1, '\0') + request.substr(2, 2) + protocol +
           std::string("\x00\x7f\x00\x00\x01\x06\xb7", 7);
}

class H323 : public testing::Test {
protected:
    H323() { settings.limit = std::chrono::seconds(1); }

    void ExpectGatekeeper(std::uint16_t port, Status status, const std::string& before, const std::string& after) {
        settings.gatekeeper = Host{"127.0.0.1", port};
        const Finding finding = CheckH323(settings);
        EXPECT_EQ(finding.status, status) << finding.text;
        EXPECT_EQ(finding.text, before + "127.0.0.1:" + std::to_string(port) + after);
    }

    CallSettings settings;
};

TEST_F(H323, NothingNamedIsUnknown) {
    const Finding finding = CheckH323(settings);
    EXPECT_EQ(finding.status, Status::Unknown);
    EXPECT_EQ(finding.text, "not known: name Call/Gatekeeper or Call/H323Peer in the room's file");
}

TEST_F(H323, AGatekeeperConfirmsOrRejects) {
    std::atomic<char> first{0x04};
    const auto gatekeeper = Server::OnDatagrams([&](int fd) {
        const auto datagram = loopback::ReadDatagram(fd);
        if (datagram.text.size() == 20) {
            datagram.answer(AnswerTo(datagram.text, first));
        }
    });
    ExpectGatekeeper(gatekeeper.Port(), Status::Success, "gatekeeper ", " confirms that it serves this room");
    first = 0x08;
    ExpectGatekeeper(gatekeeper.Port(), Status::Warn, "gatekeeper ",
                     " answers, and rejects this room; check its rules");
}

TEST_F(H323, ALostRequestIsSentAgainAndOtherAnswersAreIgnored) {
    std::atomic<int> requests{0};
    const auto gatekeeper = Server::OnDatagrams([&](int fd) {
        const auto datagram = loopback::ReadDatagram(fd);
        if (datagram.text.empty()) {
            return;
        }
        std::string other = AnswerTo(datagram.text, 0x08);
        other[3] = static_cast<char>(other[3] + 1);
        datagram.answer(other);
        datagram.answer("");
        datagram.answer("garbage");
        if (++requests == 2) {
            datagram.answer(AnswerTo(datagram.text, 0x04));
        }
    });
    ExpectGatekeeper(gatekeeper.Port(), Status::Success, "gatekeeper ", " confirms that it serves this room");
    EXPECT_EQ(requests, 2);
}

TEST_F(H323, ASilentOrAbsentGatekeeperIsAFailure) {
    const auto silent = loopback::BindDatagram();
    ExpectGatekeeper(silent.port, Status::Fail, "", std::string(": the gatekeeper does not answer in 1 s") + kAdvice);
    ExpectGatekeeper(loopback::FreePort(), Status::Fail, "", std::string(": Connection refused") + kAdvice);
}

TEST_F(H323, APeerTakesConnectionsOrNot) {
    const auto open = loopback::Listen();
    settings.h323Peer = Host{"127.0.0.1", open.port};
    Finding finding = CheckH323(settings);
    EXPECT_EQ(finding.status, Status::Success);
    EXPECT_EQ(finding.text,
              "H.323 peer 127.0.0.1:" + std::to_string(open.port) + " takes connections; no call was tried");
    const auto closed = loopback::BindStream();
    settings.h323Peer->port = closed.port;
    finding = CheckH323(settings);
    EXPECT_EQ(finding.status, Status::Fail);
    EXPECT_EQ(finding.text, "127.0.0.1:" + std::to_string(closed.port) + ": Connection refused" + kAdvice);
}

}  // namespace
