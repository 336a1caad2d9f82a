// The performance data of plugins: the convention, what real plugins write, and what goes wrong.
#include "items/perfdata.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <sstream>
#include <string>

using namespace ominspect;
using namespace ominspect::items;

namespace {

// "label|value|unit|warn|crit|min|max", one below the other; what is not there is empty.
std::string Parsed(std::string_view data) {
    std::ostringstream out;
    for (const client::PerfValue& value : ParsePerfData(data)) {
        out << (out.tellp() > 0 ? "\n" : "") << value.label << '|' << value.value << '|' << value.unit << '|'
            << value.warn << '|' << value.crit << '|';
        if (value.min) {
            out << *value.min;
        }
        out << '|';
        if (value.max) {
            out << *value.max;
        }
    }
    return out.str();
}

TEST(PerfData, IsAPairOrMore) {
    EXPECT_EQ(Parsed(""), "");
    EXPECT_EQ(Parsed(" \t\r\n"), "");
    EXPECT_EQ(Parsed("a=1"), "a|1|||||");
    EXPECT_EQ(Parsed("  a=1 \t b=2\nc=3\r\n"), "a|1|||||\nb|2|||||\nc|3|||||");
    EXPECT_EQ(Parsed("a=1s;2;3;4;5"), "a|1|s|2|3|4|5");
}

TEST(PerfData, IsWhatPluginsWrite) {
    EXPECT_EQ(Parsed("load1=0.120;5.000;10.000;0; load5=0.070;4.000;6.000;0;"),
              "load1|0.12||5.000|10.000|0|\nload5|0.07||4.000|6.000|0|");
    EXPECT_EQ(Parsed("/=2643MB;5948;5958;0;5968 /boot=68MB;88;93;0;98"),
              "/|2643|MB|5948|5958|0|5968\n/boot|68|MB|88|93|0|98");
    EXPECT_EQ(Parsed("rta=0.033000ms;100.000000;500.000000;0.000000 pl=0%;20;60;0"),
              "rta|0.033|ms|100.000000|500.000000|0|\npl|0|%|20|60|0|");
    EXPECT_EQ(Parsed("time=0.000151s;;;0.000000;10.000000"), "time|0.000151|s|||0|10");
    EXPECT_EQ(Parsed("users=3;20;50;0"), "users|3||20|50|0|");
    EXPECT_EQ(Parsed("'eth0 in'=7253c;;;; 'C:\\ used'=12.5GB;80:90;@10:20"),
              "eth0 in|7253|c||||\nC:\\ used|12.5|GB|80:90|@10:20||");
}

TEST(PerfData, LabelsInQuotesHoldAnything) {
    EXPECT_EQ(Parsed("'a b'=1"), "a b|1|||||");
    EXPECT_EQ(Parsed("'a=b'=1"), "a=b|1|||||");
    EXPECT_EQ(Parsed("'it''s'=1"), "it's|1|||||");
    EXPECT_EQ(Parsed("''''=1"), "'|1|||||");
    EXPECT_EQ(Parsed("'a;b|c\"d'=1"), "a;b|c\"d|1|||||");
    EXPECT_EQ(Parsed("'plain'=1 next=2"), "plain|1|||||\nnext|2|||||");
    EXPECT_EQ(Parsed("k\xc3\xbc\x63he=21"), "k\xc3\xbc\x63he|21|||||");
}

TEST(PerfData, NumbersAreDecimal) {
    EXPECT_EQ(Parsed("a=-1.5"), "a|-1.5|||||");
    EXPECT_EQ(Parsed("a=.5"), "a|0.5|||||");
    EXPECT_EQ(Parsed("a=-.5"), "a|-0.5|||||");
    EXPECT_EQ(Parsed("a=5.s"), "a|5|s||||");
    EXPECT_EQ(Parsed("a=1e3B"), "a|1000|B||||");
    EXPECT_EQ(Parsed("a=1E-3"), "a|0.001|||||");
    EXPECT_EQ(Parsed("a=7e"), "a|7|e||||");
    EXPECT_EQ(Parsed("a=0;;;1x;-2.5"), "a|0|||||-2.5");
}

TEST(PerfData, AnyUnitIsKept) {
    for (const std::string unit : {"", "s", "us", "ms", "%", "B", "KB", "MB", "GB", "TB", "c", "W", "\xc2\xb0\x43"}) {
        EXPECT_EQ(Parsed("a=1" + unit), "a|1|" + unit + "||||");
    }
    EXPECT_EQ(Parsed("a=1" + std::string(15, 'u')), "a|1|" + std::string(15, 'u') + "||||");
    EXPECT_EQ(Parsed("a=1" + std::string(16, 'u')), "");
}

TEST(PerfData, RangesAreKeptAsTheyAre) {
    EXPECT_EQ(Parsed("a=1;10:;~:10"), "a|1||10:|~:10||");
    EXPECT_EQ(Parsed("a=1;@1.5:2e3;-10:-5"), "a|1||@1.5:2e3|-10:-5||");
    EXPECT_EQ(Parsed("a=1;soon;5"), "a|1|||5||") << "no range, but the value is one";
    EXPECT_EQ(Parsed("a=1;" + std::string(31, '1')), "a|1||" + std::string(31, '1') + "|||");
    EXPECT_EQ(Parsed("a=1;" + std::string(32, '1')), "a|1|||||");
}

TEST(PerfData, BadPairsArePassedOver) {
    for (const std::string bad :
         {"word", "=1",     "a=",     "a=;1;2", "a=U",           "a=U;1;2", "a=nan",   "a=inf",  "a=-",
          "a=.",  "a=--1",  "a=x1",   "a=+1",   "a=1e999",       "a=12,5",  "a=1s2",   "a=1'",   "''=1",
          "'a'",  "'a' =1", "'a'b=1", "it's=1", "a=1;2;3;4;5;6", "a\x01=1", "a\xff=1", "a=1\x7f"}) {
        EXPECT_EQ(Parsed("x=1 " + bad + " y=2"), "x|1|||||\ny|2|||||") << bad;
    }
    EXPECT_EQ(Parsed("x=1 'open=2 y=3"), "x|1|||||") << "nobody knows where the label ends";
    EXPECT_EQ(Parsed("'"), "");
    EXPECT_EQ(Parsed("'a'"), "");
    EXPECT_EQ(Parsed(std::string(63, 'l') + "=1"), std::string(63, 'l') + "|1|||||");
    EXPECT_EQ(Parsed(std::string(64, 'l') + "=1 y=2"), "y|2|||||");
    EXPECT_EQ(Parsed("a=1;2;3;4;5;;;"), "a|1||2|3|4|5");
}

TEST(PerfData, IsBounded) {
    std::string data;
    for (int i = 0; i < 100; ++i) {
        data += "v" + std::to_string(i) + "=1 ";
    }
    const auto values = ParsePerfData(data);
    ASSERT_EQ(values.size(), 64U);
    EXPECT_EQ(values.back().label, "v63");
}

TEST(PerfData, StandsBehindTheBars) {
    EXPECT_EQ(PerfDataOf(""), "");
    EXPECT_EQ(PerfDataOf("OK"), "");
    EXPECT_EQ(PerfDataOf("OK | a=1"), " a=1\n");
    EXPECT_EQ(PerfDataOf("\n  \nOK | a=1\n"), " a=1\n");
    EXPECT_EQ(Parsed(PerfDataOf("OK | a=1\nlong text\nmore | b=2\nc=3\n")), "a|1|||||\nb|2|||||\nc|3|||||");
    EXPECT_EQ(Parsed(PerfDataOf("OK\nlong d=4 text | b=2\nc=3")), "b|2|||||\nc|3|||||");
    EXPECT_EQ(Parsed(PerfDataOf("OK | a=1 | b=2")), "a|1|||||\nb|2|||||");
    EXPECT_EQ(PerfDataOf("OK |"), "\n");
}

TEST(PerfData, OfACutOutputIsWithoutItsEnd) {
    const auto cut = [](std::string text) {
        text.resize(4096, '5');
        return Parsed(PerfDataOf(text));
    };
    EXPECT_EQ(cut("OK | a=1 b=2"), "a|1|||||") << "more digits may have followed";
    EXPECT_EQ(cut("OK | a=1 'b c=2"), "a|1|||||");
    EXPECT_EQ(PerfDataOf(std::string(4096, '|')), "");
    std::string whole = "OK | a=1 b=";
    whole.resize(4095, '5');
    EXPECT_EQ(ParsePerfData(PerfDataOf(whole)).size(), 1U) << "b is no number: it is too long";
}

TEST(PerfData, OnlyARunThatEndedByItselfHasMeasured) {
    CommandOutcome outcome{CommandOutcome::End::kExited, 2, {"BAD | a=1", "b=2 | c=3"}};
    ASSERT_EQ(MeasuredBy(outcome).size(), 1U);
    EXPECT_EQ(MeasuredBy(outcome)[0].label, "a");
    for (const auto end :
         {CommandOutcome::End::kSignalled, CommandOutcome::End::kNotStarted, CommandOutcome::End::kTimeLimit,
          CommandOutcome::End::kNeverStarted, CommandOutcome::End::kStopped}) {
        outcome.end = end;
        EXPECT_TRUE(MeasuredBy(outcome).empty());
    }
}

TEST(PerfData, GoesAsFixedRecords) {
    const std::string event = EncodePerfData("disk", ParsePerfData("used=-2.5MB;@5:10;~:20;0 n=1"));
    std::string golden(40 + 2 * 168, '\0');
    const auto put = [&golden](std::size_t offset, const void* bytes, std::size_t size) {
        std::memcpy(golden.data() + offset, bytes, size);
    };
    const std::uint32_t count = 2;
    const double none = std::numeric_limits<double>::quiet_NaN();
    const double first[] = {-2.5, 0, none};
    const double second[] = {1, none, none};
    put(0, "disk", 4);
    put(32, &count, 4);
    put(40, "used", 4);
    put(40 + 64, "MB", 2);
    put(40 + 80, "@5:10", 5);
    put(40 + 112, "~:20", 4);
    put(40 + 144, first, sizeof first);
    put(208, "n", 1);
    put(208 + 144, second, sizeof second);
    EXPECT_EQ(event, golden);
    EXPECT_EQ(EncodePerfData("disk", {}), golden.substr(0, 32) + std::string(8, '\0'));
}

TEST(PerfData, TheLongestTextsFitIntoTheirFields) {
    client::PerfValue value;
    value.label = std::string(63, 'l');
    value.unit = std::string(15, 'u');
    value.warn = std::string(31, '1');
    value.crit = std::string(31, '2');
    const std::string event = EncodePerfData(std::string(31, 'i'), {value});
    EXPECT_STREQ(event.c_str(), std::string(31, 'i').c_str());
    EXPECT_STREQ(event.c_str() + 40, value.label.c_str());
    EXPECT_STREQ(event.c_str() + 40 + 64, value.unit.c_str());
    EXPECT_STREQ(event.c_str() + 40 + 80, value.warn.c_str());
    EXPECT_STREQ(event.c_str() + 40 + 112, value.crit.c_str());
}

}  // namespace
