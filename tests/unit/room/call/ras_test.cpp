// The bytes of the gatekeeper discovery. Those of the request are what a protocol analyser reads as meant (docs).
#include "call/ras.h"

#include <gtest/gtest.h>

#include <string>

using namespace room;

namespace {

std::string Bytes(std::initializer_list<unsigned> values) {
    std::string out;
    for (const unsigned value : values) {
        out += static_cast<char>(static_cast<unsigned char>(value));
    }
    return out;
}

// A confirm to number 0x1234, cut where nothing more is read.
std::string Confirm() {
    return Bytes({0x04, 0x00, 0x12, 0x33, 0x06, 0x00, 0x08, 0x91, 0x4a, 0x00, 0x04, 0x00});
}

TEST(Ras, TheRequestIsATerminalsInAlignedPer) {
    EXPECT_EQ(MakeGatekeeperRequest(0x1234, {192, 0, 2, 7}, 40000),
              Bytes({0x00, 0x00, 0x12, 0x33, 0x06, 0x00, 0x08, 0x91, 0x4a, 0x00,
                     0x04, 0x00, 192,  0,    2,    7,    0x9c, 0x40, 0x02, 0x00}));
}

TEST(Ras, ConfirmAndRejectAreToldApart) {
    EXPECT_EQ(ParseGatekeeperReply(Confirm(), 0x1234), GatekeeperReply::Confirm);
    std::string reject = Confirm();
    reject[0] = 0x08;
    EXPECT_EQ(ParseGatekeeperReply(reject, 0x1234), GatekeeperReply::Reject);
    std::string withMore = Confirm();
    withMore[0] = 0x07;  // extensions and nonStandardData come later
    withMore[1] = static_cast<char>(0x80);
    EXPECT_EQ(ParseGatekeeperReply(withMore, 0x1234), GatekeeperReply::Confirm);
}

TEST(Ras, WhatIsNoAnswerToThisRequestIsNotTaken) {
    EXPECT_EQ(ParseGatekeeperReply(Confirm(), 0x1235), std::nullopt) << "another number";
    EXPECT_EQ(ParseGatekeeperReply("", 0x1234), std::nullopt);
    for (std::size_t size = 0; size < 11; ++size) {
        EXPECT_EQ(ParseGatekeeperReply(Confirm().substr(0, size), 0x1234), std::nullopt) << size;
    }
    for (const unsigned first : {0x00U, 0x0cU, 0x10U, 0x84U, 0xffU}) {
        std::string other = Confirm();
        other[0] = static_cast<char>(static_cast<unsigned char>(first));
        EXPECT_EQ(ParseGatekeeperReply(other, 0x1234), std::nullopt) << first;
    }
    std::string protocol = Confirm();
    protocol[7] = 0x00;
    EXPECT_EQ(ParseGatekeeperReply(protocol, 0x1234), std::nullopt) << "another protocol";
}

}  // namespace
