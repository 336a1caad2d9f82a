// The request that is sent, and what is taken for an answer to it.
#include "call/sip_options.h"

#include <gtest/gtest.h>

#include <string>

using namespace room;

namespace {

SipRequest Request() {
    SipRequest request;
    request.transport = SipTransport::Udp;
    request.server = "sip.example.org";
    request.user = "room1";
    request.localIp = "192.0.2.7";
    request.localPort = 40000;
    request.branch = "z9hG4bK0123";
    request.callId = "abcdef@192.0.2.7";
    request.fromTag = "f00d";
    return request;
}

// The answer of a good server, with one line replaced by another.
std::string Reply(const std::string& line = "", const std::string& by = "") {
    std::string text =
        "SIP/2.0 200 OK\r\n"
        "Via: SIP/2.0/UDP 192.0.2.7:40000;rport=40000;received=192.0.2.7;branch=z9hG4bK0123\r\n"
        "From: <sip:room1@sip.example.org>;tag=f00d\r\n"
        "To: <sip:room1@sip.example.org>;tag=abc\r\n"
        "Call-ID: abcdef@192.0.2.7\r\n"
        "CSeq: 1 OPTIONS\r\n"
        "Content-Length: 0\r\n\r\n";
    if (!line.empty()) {
        const std::size_t at = text.find(line);
        EXPECT_NE(at, std::string::npos) << line;
        text.replace(at, line.size(), by);
    }
    return text;
}

bool IsTaken(const std::string& message) {
    const auto reply = ParseSipReply(message);
    return reply && Answers(*reply, Request());
}

TEST(SipOptions, TheRequestHasWhatEveryRequestMustHave) {
    EXPECT_EQ(MakeOptions(Request()),
              "OPTIONS sip:room1@sip.example.org SIP/2.0\r\n"
              "Via: SIP/2.0/UDP 192.0.2.7:40000;rport;branch=z9hG4bK0123\r\n"
              "From: <sip:room1@sip.example.org>;tag=f00d\r\n"
              "To: <sip:room1@sip.example.org>\r\n"
              "Call-ID: abcdef@192.0.2.7\r\n"
              "CSeq: 1 OPTIONS\r\n"
              "Contact: <sip:room@192.0.2.7:40000>\r\n"
              "Accept: application/sdp\r\n"
              "Max-Forwards: 70\r\n"
              "User-Agent: ominspect-room\r\n"
              "Content-Length: 0\r\n\r\n");
}

TEST(SipOptions, WithoutAUserTheServerItselfIsAsked) {
    SipRequest request = Request();
    request.user.clear();
    const std::string text = MakeOptions(request).value_or("");
    EXPECT_TRUE(text.starts_with("OPTIONS sip:sip.example.org SIP/2.0\r\n")) << text;
    EXPECT_NE(text.find("\r\nFrom: <sip:room@192.0.2.7:40000>;tag=f00d\r\n"), std::string::npos) << text;
}

TEST(SipOptions, AddressesOfBothKindsPortsAndTransportsStandWhereTheyBelong) {
    SipRequest request = Request();
    request.transport = SipTransport::Tls;
    request.server = "2001:db8::1";
    request.port = 5071;
    request.localIp = "2001:db8::7";
    const std::string text = MakeOptions(request).value_or("");
    EXPECT_TRUE(text.starts_with("OPTIONS sip:room1@[2001:db8::1]:5071 SIP/2.0\r\n")) << text;
    EXPECT_NE(text.find("\r\nVia: SIP/2.0/TLS [2001:db8::7]:40000;"), std::string::npos) << text;
}

TEST(SipOptions, AUserOrServerThatWouldMakeAnotherRequestIsNotTaken) {
    for (const std::string bad : {"room 1", "room\r\nX: y", "a>b", "a<b", "a\"b"}) {
        SipRequest request = Request();
        request.user = bad;
        EXPECT_FALSE(MakeOptions(request)) << bad;
        request = Request();
        request.server = bad;
        EXPECT_FALSE(MakeOptions(request)) << bad;
    }
}

TEST(SipOptions, AnAnswerToTheRequestIsTaken) {
    const auto reply = ParseSipReply(Reply());
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->status, 200);
    EXPECT_EQ(reply->reason, "OK");
    EXPECT_TRUE(Answers(*reply, Request()));
}

TEST(SipOptions, CompactNamesFoldedLinesAndABodyAreTaken) {
    EXPECT_TRUE(
        IsTaken("SIP/2.0 486 Busy Here\r\n"
                "v: SIP/2.0/UDP 192.0.2.7:40000\r\n ;branch=z9hG4bK0123\r\n"
                "f: <sip:room1@sip.example.org>;tag=f00d\r\n"
                "t: <sip:room1@sip.example.org>;tag=abc\r\n"
                "i: abcdef@192.0.2.7\r\n"
                "cseq: 1 OPTIONS\r\n"
                "l: 4\r\n\r\nv=0\n"));
}

TEST(SipOptions, AnAnswerToAnotherRequestIsNotTaken) {
    EXPECT_FALSE(IsTaken(Reply("branch=z9hG4bK0123", "branch=z9hG4bK9999")));
    EXPECT_FALSE(IsTaken(Reply("branch=z9hG4bK0123", "other=1")));
    EXPECT_FALSE(IsTaken(Reply("Call-ID: abcdef", "Call-ID: fedcba")));
    EXPECT_FALSE(IsTaken(Reply("Call-ID: abcdef@192.0.2.7", "Call-ID: abcdef")));
    EXPECT_FALSE(IsTaken(Reply("CSeq: 1 OPTIONS", "CSeq: 2 OPTIONS")));
    EXPECT_FALSE(IsTaken(Reply("CSeq: 1 OPTIONS", "CSeq: 1 INVITE")));
    EXPECT_FALSE(IsTaken(Reply("tag=f00d", "tag=d00f")));
    EXPECT_FALSE(IsTaken(Reply("From:", "Via: SIP/2.0/UDP 198.51.100.1;branch=z9hG4bK1\r\nFrom:"))) << "two Via";
}

TEST(SipOptions, WhatIsNoAnswerIsNotTaken) {
    const std::string lines[] = {
        "Via: SIP/2.0/UDP 192.0.2.7:40000;rport=40000;received=192.0.2.7;branch=z9hG4bK0123\r\n",
        "From: <sip:room1@sip.example.org>;tag=f00d\r\n", "Call-ID: abcdef@192.0.2.7\r\n", "CSeq: 1 OPTIONS\r\n"};
    for (const std::string& line : lines) {
        EXPECT_FALSE(IsTaken(Reply(line, ""))) << "without " << line;
    }
    EXPECT_FALSE(IsTaken(""));
    EXPECT_FALSE(IsTaken("\r\n\r\n"));
    EXPECT_FALSE(IsTaken("SIP/2.0 200 OK\r\n\r\n"));
    EXPECT_FALSE(IsTaken("HTTP/1.1 400 Bad Request\r\n\r\n"));
    EXPECT_FALSE(IsTaken(Reply("SIP/2.0 200 OK", "OPTIONS sip:room1@sip.example.org SIP/2.0"))) << "a request";
    EXPECT_FALSE(IsTaken(Reply("SIP/2.0 200 OK", "SIP/3.0 200 OK")));
    EXPECT_FALSE(IsTaken(Reply("SIP/2.0 200 OK", "SIP/2.0 99 OK")));
    EXPECT_FALSE(IsTaken(Reply("SIP/2.0 200 OK", "SIP/2.0 700 OK")));
    EXPECT_FALSE(IsTaken(Reply("Content-Length: 0", "Content-Length: 5"))) << "cut off";
    EXPECT_FALSE(IsTaken(Reply("200 OK", std::string("200 O\0K", 7)))) << "a NUL";
    EXPECT_FALSE(IsTaken(Reply("Content-Length: 0", std::string("\0X: y", 5)))) << "a NUL where the head might end";
    EXPECT_FALSE(IsTaken(Reply("Content-Length: 0\r\n\r\n", "Content-Length: 0\r\n"))) << "no end of the head";
}

TEST(SipOptions, AnAnswerOf64KiBIsTaken) {
    const std::string text = Reply("CSeq:", "X-Long: " + std::string(32 * 1024, 'x') + "\r\nCSeq:");
    EXPECT_TRUE(IsTaken(text));
    std::string many;
    for (int i = 0; i < 4000; ++i) {
        many += "X-Many: 1234\r\n";
    }
    EXPECT_TRUE(IsTaken(Reply("CSeq:", many + "CSeq:")));
}

TEST(SipFraming, AMessageIsWholeWhenItsBodyIsThere) {
    const std::string head = "SIP/2.0 200 OK\r\nContent-Length: 3\r\n\r\n";
    EXPECT_EQ(FrameSipMessage("", 1000).framing, Framing::Incomplete);
    EXPECT_EQ(FrameSipMessage(head.substr(0, head.size() - 1), 1000).framing, Framing::Incomplete);
    EXPECT_EQ(FrameSipMessage(head + "ab", 1000).framing, Framing::Incomplete);
    const SipFrame frame = FrameSipMessage(head + "abcnext", 1000);
    EXPECT_EQ(frame.framing, Framing::Whole);
    EXPECT_EQ(frame.start, 0U);
    EXPECT_EQ(frame.length, head.size() + 3);
}

TEST(SipFraming, BlankLinesBeforeAMessageArePassedOver) {
    const std::string message = "SIP/2.0 200 OK\r\nl : 0\r\n\r\n";
    const SipFrame frame = FrameSipMessage("\r\n\r\n" + message, 1000);
    EXPECT_EQ(frame.framing, Framing::Whole);
    EXPECT_EQ(frame.start, 4U);
    EXPECT_EQ(frame.length, message.size());
    EXPECT_EQ(FrameSipMessage("\r\n\r\n", 1000).framing, Framing::Incomplete);
}

TEST(SipFraming, WhatHasNoEndIsBroken) {
    EXPECT_EQ(FrameSipMessage("SIP/2.0 200 OK\r\n\r\n", 1000).framing, Framing::Broken) << "no length";
    EXPECT_EQ(FrameSipMessage("a\r\nContent-Length: x\r\n\r\n", 1000).framing, Framing::Broken);
    EXPECT_EQ(FrameSipMessage("a\r\nContent-Length: -1\r\n\r\n", 1000).framing, Framing::Broken);
    EXPECT_EQ(FrameSipMessage("a\r\nContent-Length: 1\r\nl: 2\r\n\r\n", 1000).framing, Framing::Broken)
        << "two lengths";
    EXPECT_EQ(FrameSipMessage("a\r\nContent-Length: 1000\r\n\r\n", 1000).framing, Framing::Broken) << "too long";
    EXPECT_EQ(FrameSipMessage("a\r\nContent-Length: 18446744073709551615\r\n\r\n", 1000).framing, Framing::Broken);
    EXPECT_EQ(FrameSipMessage(std::string(1001, 'a'), 1000).framing, Framing::Broken) << "no end of the head";
    EXPECT_EQ(FrameSipMessage(std::string(1001, '\n'), 1000).framing, Framing::Broken) << "blank lines only";
}

}  // namespace
