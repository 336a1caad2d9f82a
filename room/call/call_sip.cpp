// One OPTIONS request to each SIP server, over the transport that the room's file names.
#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <vector>

#include <poll.h>
#include <sys/random.h>

#include "call/call.h"
#include "call/net.h"
#include "call/sip_options.h"
#include "call/sip_verdict.h"
#include "call/tls_probe.h"

namespace room {
namespace {

using ominspect::SystemError;

// The largest datagram, and the limit for streams too; no answer to OPTIONS comes near it.
constexpr std::size_t kMaxMessage = 64UL * 1024UL;
// Messages that belong to other requests, or are none, before the server is given up.
constexpr unsigned kMaxStrangers = 256;
// The timers of a request over UDP (RFC 3261, 17.1.2.2).
constexpr std::chrono::milliseconds kT1{500};
constexpr std::chrono::milliseconds kT2{4000};

std::string RandomText() {
    std::array<unsigned char, 12> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        // Then only the clock makes the text differ, which is enough to tell one request from the next.
        const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
        std::copy_n(reinterpret_cast<const unsigned char*>(&now), sizeof now, bytes.begin());
    }
    static constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (const unsigned byte : bytes) {
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 15U];
    }
    return text;
}

SipRequest MakeRequest(const SipServer& server, const SocketAddress& local) {
    const std::uint16_t usual = server.transport == SipTransport::Tls ? 5061 : 5060;
    SipRequest request;
    request.transport = server.transport;
    request.server = server.host.name;
    request.port = server.host.port == usual ? std::uint16_t{0} : server.host.port;
    request.user = server.user;
    request.localIp = local.Ip();
    request.localPort = local.Port();
    request.branch = "z9hG4bK" + RandomText();
    request.callId = RandomText() + "@" + InBrackets(local.Ip());
    request.fromTag = RandomText();
    return request;
}

// What came until the final answer, or until nothing more is to be expected.
class Answer {
public:
    explicit Answer(const SipRequest& request) : request_(request) {}

    // Looks at one message; true when it is the final answer, or when there have been too many others.
    bool Take(std::string_view message) {
        auto reply = ParseSipReply(message);
        if (!reply || !Answers(*reply, request_)) {
            return ++strangers_ == kMaxStrangers;
        }
        (reply->status < 200 ? provisional_ : final_) = std::move(reply);
        return final_.has_value();
    }

    [[nodiscard]] bool IsProceeding() const { return provisional_.has_value(); }

    // `missing` says why there is no final answer.
    [[nodiscard]] Finding Judge(const SipServer& server, const std::string& name, const std::string& missing) const {
        if (final_) {
            return JudgeSipStatus(final_->status, final_->reason, name, !server.user.empty());
        }
        if (provisional_) {
            return Warn(name + " answers " + std::to_string(provisional_->status) + ", and then: " + missing +
                        "; check the server");
        }
        if (strangers_ > 0) {
            return FailOf(name, "sends messages, but none that answers OPTIONS; check the server and the port");
        }
        return FailOf(name, missing);
    }

private:
    const SipRequest& request_;
    std::optional<SipReply> final_;
    std::optional<SipReply> provisional_;
    unsigned strangers_ = 0;
};

Finding AskOverUdp(const SipServer& server, const std::string& name, const SocketAddress& address,
                   const Deadline& deadline) {
    const auto fd = OpenDatagram(address);
    if (!fd) {
        return FailOf(name, fd.Failure().text);
    }
    const SipRequest request = MakeRequest(server, LocalAddress(fd->Get()));
    const auto text = MakeOptions(request);
    if (!text) {
        return FailOf(name, "host or user do not fit into a request; correct them");
    }
    Answer answer(request);
    std::vector<char> datagram(kMaxMessage);
    auto pause = kT1;
    while (!deadline.IsOver()) {
        if (send(fd->Get(), text->data(), text->size(), 0) < 0) {
            return FailOf(name, SystemError().text);
        }
        const Deadline untilResend(std::min(answer.IsProceeding() ? kT2 : pause, deadline.Left()));
        pause = std::min(pause * 2, kT2);
        while (WaitFor(fd->Get(), POLLIN, untilResend)) {
            const ssize_t got = recv(fd->Get(), datagram.data(), datagram.size(), 0);
            if (got < 0 && errno != EAGAIN && errno != EINTR) {
                return FailOf(name, SystemError().text);
            }
            if (got > 0 && answer.Take({datagram.data(), static_cast<std::size_t>(got)})) {
                return answer.Judge(server, name, "");
            }
        }
    }
    return answer.Judge(server, name, "no answer to OPTIONS in " + deadline.Text());
}

Finding AskOverStream(const SipServer& server, const std::string& name, Stream& stream, const SocketAddress& local,
                      const Deadline& deadline) {
    const SipRequest request = MakeRequest(server, local);
    const auto text = MakeOptions(request);
    if (!text) {
        return FailOf(name, "host or user do not fit into a request; correct them");
    }
    if (const auto error = stream.Write(*text, deadline)) {
        return FailOf(name, error->text);
    }
    Answer answer(request);
    std::string received;
    std::array<char, 4096> block{};
    for (;;) {
        const SipFrame frame = FrameSipMessage(received, kMaxMessage);
        if (frame.framing == Framing::Broken) {
            return FailOf(name, "what it sends is no SIP, or is too long; check the server and the port");
        }
        if (frame.framing == Framing::Whole) {
            if (answer.Take(std::string_view(received).substr(frame.start, frame.length))) {
                return answer.Judge(server, name, "");
            }
            received.erase(0, frame.start + frame.length);
            continue;
        }
        const auto got = stream.Read(block, deadline);
        if (!got) {
            return answer.Judge(server, name, got.Failure().text);
        }
        if (*got == 0) {
            return answer.Judge(server, name, "ends the connection without an answer");
        }
        received.append(block.data(), *got);
    }
}

Finding CheckUdp(const SipServer& server, const std::string& name, const Deadline& deadline) {
    const auto addresses = Resolve(server.host, SOCK_DGRAM, deadline);
    if (!addresses) {
        return FailOf(name, addresses.Failure().text);
    }
    Finding finding = FailOf(name, "has no address");
    for (std::size_t i = 0; i < addresses->size() && finding.status == Status::Fail; ++i) {
        finding = AskOverUdp(server, name, (*addresses)[i], deadline.Share(addresses->size() - i));
    }
    return finding;
}

}  // namespace

Finding CheckSipServer(const SipServer& server, const Deadline& deadline) {
    const std::string name = server.host.Text() + "/" + std::string(TransportWord(server.transport));
    if (server.transport == SipTransport::Udp) {
        return CheckUdp(server, name, deadline);
    }
    auto fd = Connect(server.host, deadline);
    if (!fd) {
        return FailOf(name, fd.Failure().text);
    }
    const SocketAddress local = LocalAddress(fd->Get());
    if (server.transport == SipTransport::Tcp) {
        return AskOverStream(server, name, *PlainStream(std::move(*fd)), local, deadline);
    }
    const std::string& wanted = server.trust.NameOr(server.host.name);
    const auto session = StartTls(std::move(*fd), wanted, server.trust.caFile, deadline);
    if (!session) {
        return FailOf(name, session.Failure().text);
    }
    const auto certificate = JudgeCertificate(session->certificate, wanted, server.trust);
    if (certificate && certificate->status == Status::Fail) {
        return FailOf(name, certificate->text);
    }
    Finding finding = AskOverStream(server, name, *session->stream, local, deadline);
    if (certificate && finding.status == Status::Success) {
        return Warn(name + ": " + certificate->text);
    }
    return finding;
}

Finding CheckSip(const CallSettings& settings) {
    if (settings.sipServers.empty()) {
        return Unknown("not known: name Call/SipServer in the room's file");
    }
    const Deadline deadline(settings.limit);
    std::vector<Finding> findings;
    for (const SipServer& server : settings.sipServers) {
        findings.push_back(CheckSipServer(server, deadline.Share(settings.sipServers.size() - findings.size())));
    }
    return Together(findings, "SIP servers");
}

}  // namespace room
