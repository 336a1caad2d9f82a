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

TEST(RunTable, AlignsItsColumns) {
    EXPECT_EQ(NameWidth({"conf_sip_ft", "x"}), 11U);
    EXPECT_EQ(NameWidth({"x"}), 4U);
    EXPECT_EQ(RunHead(11), "ITEM         STATUS         TIME  TEXT");
    EXPECT_EQ(RunLine(11, Row("conf_sip_ft", "success", "SIP OK")), "conf_sip_ft  success        7 ms  SIP OK");
    EXPECT_EQ(RunLine(11, Row("x", "warn", "t", 123456)), "x            warn      123456 ms  t");
}

TEST(RunTable, CountsCharactersAndNotBytes) {
    const char* name = "\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4";
    EXPECT_EQ(NameWidth({name}), 5U);
    EXPECT_EQ(RunLine(6, Row(name, "warn", "t")), std::string(name) + "   warn           7 ms  t");
}

TEST(RunTable, ShowsControlCharactersEscaped) {
    EXPECT_EQ(NameWidth({"a\nbcd"}), 6U);
    EXPECT_EQ(RunLine(4, Row("a\nb", "\x1B[2J", "t\xFF")), "a\\nb  \\u{1B}[2J       7 ms  t\\xff");
}

TEST(RunTable, HasADashForAnUnknownTime) {
    EXPECT_EQ(RunLine(4, {{"disk", "running", ""}, std::nullopt}), "disk  running           -  ");
}

TEST(RunTable, SaysThatAnItemIsUnknown) {
    EXPECT_EQ(RunLine(4, Row("x", "fail", "no support")),
              "x     fail           7 ms  no support (unknown item: no owner has registered it)");
}

TEST(RunJson, IsOneObjectPerItem) {
    EXPECT_EQ(RunJson(Row("load", "success", "LOAD \"OK\"")).Print(),
              R"({"item":"load","status":"success","text":"LOAD \"OK\"","durationMs":7})");
}

TEST(RunJson, IsValidUtf8WhateverTheOwnerWrote) {
    EXPECT_EQ(RunJson(Row("a\xFF", "x\n", "\xC3")).Print(),
              "{\"item\":\"a\xEF\xBF\xBD\",\"status\":\"x\\n\",\"text\":\"\xEF\xBF\xBD\",\"durationMs\":7}");
}

TEST(RunJson, HoldsNothingThatATerminalWouldObey) {
    EXPECT_EQ(RunJson(Row("a", "b",
                          "\xC2\x9B"
                          "2J"))
                  .Print(),
              R"({"item":"a","status":"b","text":"\u009b2J","durationMs":7})");
}

TEST(RunJson, HasAHintWhereOneHelps) {
    const std::string row = RunJson(Row("x", "fail", "no support")).Print();
    EXPECT_EQ(row, R"({"item":"x","status":"fail","text":"no support","durationMs":7,)"
                   R"("hint":"unknown item: no owner has registered it"})");
}

TEST(State, IsShownAsATableAndAsJson) {
    EXPECT_EQ(StateTable("load", ItemState::kIdleOrUnknown), "ITEM  STATE\nload  idle (or unknown to the server)");
    EXPECT_EQ(StateTable("load", ItemState::kNotIdle), "ITEM  STATE\nload  not idle (running, or holding a result)");
    EXPECT_EQ(StateJson("load", ItemState::kIdleOrUnknown), R"({"item":"load","state":"idle"})");
    EXPECT_EQ(StateJson("load", ItemState::kNotIdle), R"({"item":"load","state":"not idle"})");
}

TEST(ErrorJson, NamesTheItemAndTheError) {
    EXPECT_EQ(ErrorJson("load", {ErrorCode::kServerAbsent, "not there"}).Print(),
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

TEST_F(EventOutput, AndTheListHaveLocalTimesForPeopleAndUtcInJson) {
    const LastResult last{"warn", "LOAD\nWARNING", time_};
    const std::vector<ListRow> rows{{{"conf_sip_ft", "error", true}, ItemState::kIdleOrUnknown, last},
                                    {{"x", "warn", false}, ItemState::kNotIdle, std::nullopt},
                                    {{"", "", false}, std::nullopt, std::nullopt}};
    EXPECT_EQ(ListTable(rows),
              "ITEM         LEVEL  MODE   STATE     LAST RESULT\n"
              "conf_sip_ft  error  sync   idle      warn, 2001-09-09 01:46: LOAD\\nWARNING\n"
              "x            warn   async  not idle  -\n"
              "                    async  -         -");
    EXPECT_EQ(ListJson(rows, 300),
              R"({"items":[{"item":"conf_sip_ft","level":"error","isSync":true,"state":"idle",)"
              R"("lastResult":{"status":"warn","text":"LOAD\nWARNING","time":"2001-09-09T01:46:40.007Z"}},)"
              R"({"item":"x","level":"warn","isSync":false,"state":"not idle"},)"
              R"({"item":"","level":"","isSync":false}],"total":300})");
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
    EXPECT_EQ(ExitCodeOf({ErrorCode::kRefused, ""}), 3);
    EXPECT_EQ(ExitCodeOf({ErrorCode::kGroupBusy, ""}), 3);
    EXPECT_EQ(ExitCodeOf({ErrorCode::kTimeLimit, ""}), 4);
    EXPECT_EQ(ExitCodeOf({ErrorCode::kCancelled, ""}), 130);
    EXPECT_EQ(CodeOfStatus("success"), 0);
    EXPECT_EQ(CodeOfStatus("warn"), 1);
    EXPECT_EQ(CodeOfStatus(""), 1);
}

}  // namespace
