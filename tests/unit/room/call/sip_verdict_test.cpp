// What each kind of answer says of a server.
#include "call/sip_verdict.h"

#include <gtest/gtest.h>

#include <string>

using namespace room;

namespace {

Status Of(int status, bool hasUser = false) {
    return JudgeSipStatus(status, "R", "s:5060/udp", hasUser).status;
}

TEST(SipVerdict, AServerThatWorksOnRequestsIsAlive) {
    for (const int status : {200, 202, 300, 302, 305, 401, 405, 407, 480, 486, 487, 501, 600, 603, 606}) {
        EXPECT_EQ(Of(status), Status::Success) << status;
        EXPECT_EQ(Of(status, true), Status::Success) << status;
    }
}

TEST(SipVerdict, AnUnknownUserIsOnlyBadWhenTheRoomsOwnWasAskedFor) {
    for (const int status : {404, 410, 484, 485, 604}) {
        EXPECT_EQ(Of(status, false), Status::Success) << status;
        EXPECT_EQ(Of(status, true), Status::Warn) << status;
    }
    EXPECT_EQ(JudgeSipStatus(404, "Not Found", "s:5060/udp", true).text,
              "s:5060/udp answers 404 Not Found; check the room's user");
}

TEST(SipVerdict, AServerThatDoesNotLikeTheRequestIsAWarning) {
    for (const int status : {400, 403, 408, 413, 414, 416, 420, 481, 482, 483, 488, 494, 499}) {
        EXPECT_EQ(Of(status), Status::Warn) << status;
    }
    EXPECT_EQ(JudgeSipStatus(403, "Forbidden", "s:5060/udp", false).text,
              "s:5060/udp answers 403 Forbidden; it refuses this room: check its rules");
}

TEST(SipVerdict, AServerThatSaysThatItCannotServeIsBad) {
    for (const int status : {500, 502, 503, 504, 505, 513, 580}) {
        EXPECT_EQ(Of(status), Status::Fail) << status;
    }
    EXPECT_EQ(JudgeSipStatus(503, "Service Unavailable", "s:5060/udp", false).text,
              "s:5060/udp answers 503 Service Unavailable; the server cannot serve now: check it");
}

TEST(SipVerdict, ALongReasonLeavesRoomForWhatToDo) {
    const Finding finding = JudgeSipStatus(500, std::string(5000, 'x') + "\r\n", "s:5060/udp", false);
    EXPECT_EQ(finding.text,
              "s:5060/udp answers 500 " + std::string(40, 'x') + "; the server cannot serve now: check it");
}

TEST(SipVerdict, NoReasonLeavesNoBlank) {
    EXPECT_EQ(JudgeSipStatus(200, "", "s:5060/udp", false).text, "s:5060/udp answers 200");
}

}  // namespace
