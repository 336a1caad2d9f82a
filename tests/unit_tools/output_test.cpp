// What ominspectctl prints, and its exit codes.
#include "output.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "exit_code.h"

using namespace ominspect::ctl;
using namespace ominspect::client;

namespace {

RunReply Reply(RunOutcome outcome, const char* name, const char* status, const char* text) {
    return {outcome, {name, status, text}};
}

TEST(RunTable, AlignsItsColumns) {
    EXPECT_EQ(RunTable(Reply(RunOutcome::kFinal, "conf_sip_ft", "success", "SIP OK")),
              "ITEM         STATUS   TEXT\n"
              "conf_sip_ft  success  SIP OK");
}

TEST(RunTable, CountsCharactersAndNotBytes) {
    EXPECT_EQ(RunTable(Reply(RunOutcome::kFinal, "\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4", "warn", "t")),
              "ITEM   STATUS  TEXT\n"
              "\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4  warn    t");
}

TEST(RunTable, ShowsControlCharactersEscaped) {
    EXPECT_EQ(RunTable(Reply(RunOutcome::kFinal, "a\nb", "\x1B[2J", "t\xFF")),
              "ITEM  STATUS     TEXT\n"
              "a\\nb  \\u{1B}[2J  t\\xff");
}

TEST(RunTable, SaysThatAnItemRuns) {
    EXPECT_EQ(RunTable(Reply(RunOutcome::kPending, "disk", "running", "")),
              "ITEM  STATUS   TEXT\n"
              "disk  running  running: the owner reports later; 'ominspectctl run' again shows the result");
}

TEST(RunTable, SaysThatAnItemIsUnknown) {
    EXPECT_EQ(RunTable(Reply(RunOutcome::kUnknownItem, "x", "fail", "no support")),
              "ITEM  STATUS  TEXT\n"
              "x     fail    no support (unknown item: no owner has registered it)");
}

TEST(RunJson, IsOneObject) {
    EXPECT_EQ(RunJson(Reply(RunOutcome::kFinal, "load", "success", "LOAD \"OK\"")),
              R"({"item":"load","status":"success","text":"LOAD \"OK\""})");
}

TEST(RunJson, IsValidUtf8WhateverTheOwnerWrote) {
    EXPECT_EQ(RunJson(Reply(RunOutcome::kFinal, "a\xFF", "x\n", "\xC3")),
              "{\"item\":\"a\xEF\xBF\xBD\",\"status\":\"x\\n\",\"text\":\"\xEF\xBF\xBD\"}");
}

TEST(RunJson, HasAHintWhereOneHelps) {
    EXPECT_EQ(RunJson(Reply(RunOutcome::kUnknownItem, "x", "fail", "no support")),
              R"({"item":"x","status":"fail","text":"no support","hint":"unknown item: no owner has registered it"})");
}

TEST(State, IsShownAsATableAndAsJson) {
    EXPECT_EQ(StateTable("load", ItemState::kIdleOrUnknown), "ITEM  STATE\nload  idle (or unknown to the server)");
    EXPECT_EQ(StateTable("load", ItemState::kNotIdle), "ITEM  STATE\nload  not idle (running, or holding a result)");
    EXPECT_EQ(StateJson("load", ItemState::kIdleOrUnknown), R"({"item":"load","state":"idle"})");
    EXPECT_EQ(StateJson("load", ItemState::kNotIdle), R"({"item":"load","state":"not idle"})");
}

TEST(ErrorJson, NamesTheItemAndTheError) {
    EXPECT_EQ(ErrorJson("load", {ErrorCode::kServerAbsent, "not there"}),
              R"({"item":"load","error":{"code":"server-absent","text":"not there"}})");
}

class EventOutput : public testing::Test {
protected:
    EventOutput() {
        (void)setenv("TZ", "UTC0", 1);
        tzset();
    }
    // 2001-09-09 01:46:40.007 UTC
    const TimePoint time_{std::chrono::milliseconds(1000000000007)};
};

TEST_F(EventOutput, IsOneLineForPeople) {
    EXPECT_EQ(RunEventLine(time_, {"load", "running", "be\ngin"}),
              "01:46:40.007  run   load                             running   be\\ngin");
    EXPECT_EQ(BusyEventLine(time_, true), "01:46:40.007  busy");
    EXPECT_EQ(BusyEventLine(time_, false), "01:46:40.007  idle");
}

TEST_F(EventOutput, IsOneJsonObjectPerLine) {
    EXPECT_EQ(RunEventJson(time_, {"load", "running", "be\ngin"}),
              R"({"time":"2001-09-09T01:46:40.007Z","event":"run","item":"load","status":"running","text":"be\ngin"})");
    EXPECT_EQ(BusyEventJson(time_, true), R"({"time":"2001-09-09T01:46:40.007Z","event":"busy"})");
    EXPECT_EQ(BusyEventJson(time_, false), R"({"time":"2001-09-09T01:46:40.007Z","event":"idle"})");
}

TEST(ExitCodes, FollowTheError) {
    EXPECT_EQ(ExitCodeOf({ErrorCode::kInvalidArgument, ""}), 2);
    EXPECT_EQ(ExitCodeOf({ErrorCode::kBusUnreachable, ""}), 3);
    EXPECT_EQ(ExitCodeOf({ErrorCode::kServerAbsent, ""}), 3);
    EXPECT_EQ(ExitCodeOf({ErrorCode::kDenied, ""}), 3);
    EXPECT_EQ(ExitCodeOf({ErrorCode::kTimeLimit, ""}), 4);
}

}  // namespace
