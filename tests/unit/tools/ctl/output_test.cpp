// What ominspectctl prints, and its exit codes.
#include "output.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "exit_code.h"

using namespace ominspect;
using namespace ominspect::ctl;
using namespace ominspect::client;

namespace {

RunRow Row(const char* name, const char* status, const char* text, int ms = 7) {
    return {{name, status, text}, std::chrono::milliseconds(ms)};
}

TEST(OutputRunTable, AlignsItsColumns) {
    EXPECT_EQ(NameWidth({"conf_sip_ft", "x"}), 11U);
    EXPECT_EQ(NameWidth({"x"}), 4U);
    EXPECT_EQ(RunHead(11), "ITEM         STATUS         TIME  TEXT");
    EXPECT_EQ(RunLine(11, Row("conf_sip_ft", "success", "SIP OK")), "conf_sip_ft  success        7 ms  SIP OK");
    EXPECT_EQ(RunLine(11, Row("x", "warn", "t", 123456)), "x            warn      123456 ms  t");
}

TEST(OutputRunTable, CountsCharactersAndNotBytes) {
    const char* name = "\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4";
    EXPECT_EQ(NameWidth({name}), 5U);
    EXPECT_EQ(RunLine(6, Row(name, "warn", "t")), std::string(name) + "   warn           7 ms  t");
}

TEST(OutputRunTable, ShowsControlCharactersEscaped) {
    EXPECT_EQ(NameWidth({"a\nbcd"}), 6U);
    EXPECT_EQ(RunLine(4, Row("a\nb", "\x1B[2J", "t\xFF")), "a\\nb  \\u{1B}[2J       7 ms  t\\xff");
}

TEST(OutputRunTable, HasADashForAnUnknownTime) {
    EXPECT_EQ(RunLine(4, {{"disk", "running", ""}, std::nullopt}), "disk  running           -  ");
}

TEST(OutputRunTable, SaysThatAnItemIsUnknown) {
    EXPECT_EQ(RunLine(4, Row("x", "fail", "no support")),
              "x     fail           7 ms  no support (item unknown: no process has registered \"x\" with the server)");
}

TEST(OutputRunJson, IsOneObjectPerItem) {
    EXPECT_EQ(RunJson(Row("load", "success", "LOAD \"OK\"")).Print(),
              R"({"item":"load","status":"success","text":"LOAD \"OK\"","durationMs":7})");
}

TEST(OutputRunJson, IsValidUtf8WhateverTheOwnerWrote) {
    EXPECT_EQ(RunJson(Row("a\xFF", "x\n", "\xC3")).Print(),
              "{\"item\":\"a\xEF\xBF\xBD\",\"status\":\"x\\n\",\"text\":\"\xEF\xBF\xBD\",\"durationMs\":7}");
}

TEST(OutputRunJson, HoldsNothingThatATerminalWouldObey) {
    EXPECT_EQ(RunJson(Row("a", "b",
                          "\xC2\x9B"
                          "2J"))
                  .Print(),
              R"({"item":"a","status":"b","text":"\u009b2J","durationMs":7})");
}

TEST(OutputRunJson, HasAHintWhereOneHelps) {
    const std::string row = RunJson(Row("x", "fail", "no support")).Print();
    EXPECT_EQ(row, R"({"item":"x","status":"fail","text":"no support","durationMs":7,)"
                   R"("hint":"item unknown: no process has registered \"x\" with the server"})");
}

TEST(OutputState, IsUnknownWhenItMayBeIdleAndNobodyShowsTheItem) {
    EXPECT_EQ(StateOf(ItemState::kNotIdle, false), ShownState::kNotIdle);
    EXPECT_EQ(StateOf(ItemState::kIdleOrUnknown, true), ShownState::kIdle);
    EXPECT_EQ(StateOf(ItemState::kIdleOrUnknown, false), ShownState::kUnknown);
}

TEST(OutputState, IsShownAsATableAndAsJson) {
    EXPECT_EQ(StateTable("load", ShownState::kIdle), "ITEM  STATE\nload  idle");
    EXPECT_EQ(StateTable("load", ShownState::kUnknown), "ITEM  STATE\nload  unknown");
    EXPECT_EQ(StateTable("load", ShownState::kNotIdle), "ITEM  STATE\nload  not idle (running, or holding a result)");
    EXPECT_EQ(StateJson("load", ShownState::kIdle), R"({"item":"load","state":"idle"})");
    EXPECT_EQ(StateJson("load", ShownState::kNotIdle), R"({"item":"load","state":"not idle"})");
    EXPECT_EQ(StateJson("load", ShownState::kUnknown),
              R"({"item":"load","state":"unknown","hint":"item unknown: no process has registered \"load\" with the )"
              R"(server, as far as the owners on the bus show"})");
}

TEST(OutputAgeText, HasTheLargestUnitThatFits) {
    using std::chrono::seconds;
    EXPECT_EQ(Age(seconds(0)), "0 s ago");
    EXPECT_EQ(Age(seconds(59)), "59 s ago");
    EXPECT_EQ(Age(seconds(60)), "1 min ago");
    EXPECT_EQ(Age(seconds(3599)), "59 min ago");
    EXPECT_EQ(Age(seconds(3600)), "1 h ago");
    EXPECT_EQ(Age(seconds(86399)), "23 h ago");
    EXPECT_EQ(Age(seconds(86400 * 3)), "3 d ago");
}

TEST(OutputErrorJson, NamesTheItemAndTheError) {
    EXPECT_EQ(ErrorJson("load", {ErrorCode::kServerAbsent, "not there"}).Print(),
              R"({"item":"load","error":{"code":"server-absent","text":"not there"}})");
}

class OutputEvent : public testing::Test {
protected:
    OutputEvent() {
        (void)setenv("TZ", "UTC0", 1);
        tzset();
    }
    // 2001-09-09 01:46:40.007 UTC
    const TimePoint time_{std::chrono::milliseconds(1000000000007)};
};

TEST_F(OutputEvent, IsOneLineForPeople) {
    EXPECT_EQ(RunEventLine(time_, {"load", "running", "be\ngin"}),
              "01:46:40.007  run   load                             running   be\\ngin");
    EXPECT_EQ(BusyEventLine(time_, true), "01:46:40.007  busy");
    EXPECT_EQ(BusyEventLine(time_, false), "01:46:40.007  idle");
    EXPECT_EQ(ServerEventLine(time_, true), "01:46:40.007  server started");
    EXPECT_EQ(ServerEventLine(time_, false), "01:46:40.007  server left");
}

TEST(OutputList, ShowsOwnersAndTheAgeOfResults) {
    const TimePoint time{std::chrono::milliseconds(1000000000007)};
    const LastResult last{"warn", "LOAD\nWARNING", time};
    const LastResult later{"fail", "no support", time + std::chrono::hours(1)};  // the clock was set back
    const ConfiguredItem sip{"conf_sip_ft", "error", true};
    const ConfiguredItem empty{"", "", false};
    const std::vector<ListRow> rows{
        {{"conf_sip_ft", sip, {{"board", std::chrono::milliseconds(1500)}, {"other", {}}}}, ShownState::kIdle, last},
        {{"x", std::nullopt, {{"b\n", {}}}}, ShownState::kNotIdle, later},
        {{"", empty, {}}, std::nullopt, std::nullopt}};
    EXPECT_EQ(ListTable(rows, time + std::chrono::seconds(90)),
              "ITEM         LEVEL  MODE   OWNER         STATE     LAST RESULT\n"
              "conf_sip_ft  error  sync   board, other  idle      warn, 1 min ago: LOAD\\nWARNING\n"
              "x            -      -      b\\n           not idle  fail, 0 s ago: no support\n"
              "                    async  -             -         -");
    EXPECT_EQ(
        ListJson(rows, 300, time + std::chrono::seconds(90)),
        R"({"items":[{"item":"conf_sip_ft","isConfigured":true,"level":"error","isSync":true,)"
        R"("owners":[{"process":"board","timeLimitMs":1500},{"process":"other","timeLimitMs":0}],"state":"idle",)"
        R"("lastResult":{"status":"warn","text":"LOAD\nWARNING","time":"2001-09-09T01:46:40.007Z","ageSeconds":90}},)"
        R"({"item":"x","isConfigured":false,"owners":[{"process":"b\n","timeLimitMs":0}],"state":"not idle",)"
        R"("lastResult":{"status":"fail","text":"no support","time":"2001-09-09T02:46:40.007Z","ageSeconds":0}},)"
        R"({"item":"","isConfigured":true,"level":"","isSync":false,"owners":[]}],"total":300})");
}

TEST_F(OutputEvent, IsOneJsonObjectPerLine) {
    EXPECT_EQ(RunEventJson(time_, {"load", "running", "be\ngin"}),
              R"({"time":"2001-09-09T01:46:40.007Z","event":"run","item":"load","status":"running","text":"be\ngin"})");
    EXPECT_EQ(BusyEventJson(time_, true), R"({"time":"2001-09-09T01:46:40.007Z","event":"busy"})");
    EXPECT_EQ(BusyEventJson(time_, false), R"({"time":"2001-09-09T01:46:40.007Z","event":"idle"})");
    EXPECT_EQ(ServerEventJson(time_, false), R"({"time":"2001-09-09T01:46:40.007Z","event":"server","present":false})");
}

TEST(OutputExitCodes, FollowTheError) {
    EXPECT_EQ(ExitCodeOf({ErrorCode::kInvalidArgument, ""}), 2);
    EXPECT_EQ(ExitCodeOf({ErrorCode::kBusUnreachable, ""}), 3);
    EXPECT_EQ(ExitCodeOf({ErrorCode::kServerAbsent, ""}), 3);
    EXPECT_EQ(ExitCodeOf({ErrorCode::kDenied, ""}), 3);
    EXPECT_EQ(ExitCodeOf({ErrorCode::kRefused, ""}), 3);
    EXPECT_EQ(ExitCodeOf({ErrorCode::kGroupBusy, ""}), 3);
    EXPECT_EQ(ExitCodeOf({ErrorCode::kTimeLimit, ""}), 4);
    EXPECT_EQ(ExitCodeOf({ErrorCode::kCancelled, ""}), 130);
    EXPECT_EQ(CodeOfStatus("success"), 0);
    EXPECT_EQ(CodeOfStatus("warn"), 1);
    EXPECT_EQ(CodeOfStatus(""), 1);
}

}  // namespace
