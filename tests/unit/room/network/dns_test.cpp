// One question to one name server: the question's bytes, what counts as an answer, and servers that misbehave.
#include "network/dns.h"

#include <gtest/gtest.h>

#include "dns_server.h"

namespace {

using namespace room;
using namespace std::chrono_literals;
using Datagram = support::DnsServer::Datagram;

DnsAnswer Ask(const support::DnsServer& server, const std::string& name = "") {
    return AskServer(*ParseAddress("127.0.0.1", server.Port()), name, 300ms);
}

TEST(Dns, TheQuestionsBytes) {
    const std::vector<std::uint8_t> name{0x12, 0x34, 1, 0,   0,   1,   0,   0, 0, 0, 0, 0,
                                         1,    'a',  4, 'r', 'o', 'o', 'm', 0, 0, 1, 0, 1};
    EXPECT_EQ(MakeQuestion(0x1234, "a.room"), name);
    const std::vector<std::uint8_t> root{0x12, 0x34, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 1};
    EXPECT_EQ(MakeQuestion(0x1234, ""), root);
    EXPECT_EQ(MakeQuestion(1, "a..b"), std::nullopt);
    EXPECT_EQ(MakeQuestion(1, std::string(64, 'a') + ".b"), std::nullopt);
    EXPECT_NE(MakeQuestion(1, std::string(63, 'a') + ".b"), std::nullopt);
    EXPECT_EQ(MakeQuestion(1, std::string(254, 'a')), std::nullopt);
}

TEST(Dns, OnlyAnAnswerToTheQuestionCounts) {
    const Datagram head{0x12, 0x34, 0x81, 0, 0, 1, 0, 1, 0, 0, 0, 0};
    EXPECT_EQ(ReadAnswer(head, 0x1234, true), DnsAnswer::Answered);
    EXPECT_EQ(ReadAnswer(head, 0x1235, true), std::nullopt);
    EXPECT_EQ(ReadAnswer(head, 0x1334, true), std::nullopt);
    EXPECT_EQ(ReadAnswer(std::span(head).first(11), 0x1234, true), std::nullopt);
    EXPECT_EQ(ReadAnswer({}, 0, true), std::nullopt);
    Datagram question = head;
    question[2] = 1;
    EXPECT_EQ(ReadAnswer(question, 0x1234, true), std::nullopt);
    Datagram none = head;
    none[7] = 0;
    EXPECT_EQ(ReadAnswer(none, 0x1234, true), DnsAnswer::NotKnown);
    EXPECT_EQ(ReadAnswer(none, 0x1234, false), DnsAnswer::Answered);
    Datagram refused = head;
    refused[3] = 3;
    EXPECT_EQ(ReadAnswer(refused, 0x1234, true), DnsAnswer::NotKnown);
}

TEST(Dns, AServerThatKnowsANameAndOneThatDoesNot) {
    const support::DnsServer server([](const Datagram& question) {
        const bool isKnown = question.size() > 13 && question[13] == 'r';
        return std::vector<Datagram>{support::DnsServer::Answer(question, isKnown ? 0 : 3, isKnown ? 1 : 0)};
    });
    EXPECT_EQ(Ask(server, "rooms.example"), DnsAnswer::Answered);
    EXPECT_EQ(Ask(server, "desks.example"), DnsAnswer::NotKnown);
    EXPECT_EQ(Ask(server), DnsAnswer::Answered);
}

TEST(Dns, AServerThatIsSilentOrNotThere) {
    std::uint16_t port = 0;
    {
        const support::DnsServer server([](const Datagram&) { return std::vector<Datagram>{}; });
        EXPECT_EQ(Ask(server), DnsAnswer::Silent);
        port = server.Port();
    }
    EXPECT_EQ(AskServer(*ParseAddress("127.0.0.1", port), "", 300ms), DnsAnswer::Silent);
}

TEST(Dns, WhatIsNoAnswerIsPassedOver) {
    const support::DnsServer server([](const Datagram& question) {
        Datagram forged = support::DnsServer::Answer(question, 3, 0);
        forged[0] ^= 1;
        return std::vector<Datagram>{{},       {0},    Datagram(1400, 0xFF),
                                     question, forged, support::DnsServer::Answer(question, 0, 1)};
    });
    EXPECT_EQ(Ask(server, "rooms.example"), DnsAnswer::Answered);
}

}  // namespace
