// Names that are no levels of a topic, made levels; and where answers may go.
#include "mqtt/topics.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

using namespace ominspect::gateway::mqtt;

namespace {

TEST(MqttTopics, NamesThatAreLevelsStayAsTheyAre) {
    EXPECT_EQ(EscapeLevel("conf_ldapserver_ft"), "conf_ldapserver_ft");
    EXPECT_EQ(EscapeLevel("a b.c-d:e$f"), "a b.c-d:e$f");
    EXPECT_EQ(EscapeLevel("T\xC3\xBCr \xE9\x97\xA8 \xF0\x9F\x94\x8A"), "T\xC3\xBCr \xE9\x97\xA8 \xF0\x9F\x94\x8A");
}

TEST(MqttTopics, WhatATopicGivesAMeaningIsEscaped) {
    EXPECT_EQ(EscapeLevel("a/b"), "a%2Fb");
    EXPECT_EQ(EscapeLevel("+#%"), "%2B%23%25");
    EXPECT_EQ(EscapeLevel(""), "%");
}

TEST(MqttTopics, ControlCharactersAreEscaped) {
    EXPECT_EQ(EscapeLevel(std::string_view("a\0b", 3)), "a%00b");
    EXPECT_EQ(EscapeLevel("\x1B[2J\x7F"), "%1B[2J%7F");
    EXPECT_EQ(EscapeLevel("\xC2\x85"), "%C2%85");         // C1
    EXPECT_EQ(EscapeLevel("\xE2\x80\xAE"), "%E2%80%AE");  // turns the writing direction
}

TEST(MqttTopics, StrayBytesAreEscapedOneByOne) {
    EXPECT_EQ(EscapeLevel("\xFF\xFE"), "%FF%FE");
    EXPECT_EQ(EscapeLevel("x\xC3"), "x%C3");
    EXPECT_EQ(EscapeLevel("\xC3/"), "%C3%2F");
    EXPECT_EQ(EscapeLevel("\xED\xA0\x80"), "%ED%A0%80");           // a surrogate
    EXPECT_EQ(EscapeLevel("\xE9\x97\xC3\xBC"), "%E9%97\xC3\xBC");  // a character that is cut, before a whole one
    EXPECT_EQ(EscapeLevel("\x80\xC3\xBC"), "%80\xC3\xBC");
}

TEST(MqttTopics, NoncharactersAreEscaped) {
    EXPECT_EQ(EscapeLevel("\xEF\xBF\xBE"), "%EF%BF%BE");         // U+FFFE
    EXPECT_EQ(EscapeLevel("\xEF\xBF\xBF"), "%EF%BF%BF");         // U+FFFF
    EXPECT_EQ(EscapeLevel("\xF0\x9F\xBF\xBF"), "%F0%9F%BF%BF");  // U+1FFFF
    EXPECT_EQ(EscapeLevel("\xEF\xB7\x90"), "%EF%B7%90");         // U+FDD0
    EXPECT_EQ(EscapeLevel("\xEF\xBF\xBD"), "\xEF\xBF\xBD");      // U+FFFD is a character
    EXPECT_EQ(EscapeLevel("\xE1\xBF\xBE"), "\xE1\xBF\xBE");      // U+1FFE
}

TEST(MqttTopics, DifferentNamesStayDifferent) {
    const std::set<std::string> levels{EscapeLevel("a/b"),   EscapeLevel("a%2Fb"), EscapeLevel("a%b"),
                                       EscapeLevel("a%25b"), EscapeLevel(""),      EscapeLevel("%"),
                                       EscapeLevel("a\xFF")};
    EXPECT_EQ(levels.size(), 7U);
}

TEST(MqttTopics, AreBelowTheTerminal) {
    const Topics topics("room/12");
    EXPECT_EQ(topics.Status(), "ominspect/room%2F12/status");
    EXPECT_EQ(topics.Item("a+b"), "ominspect/room%2F12/items/a%2Bb");
    EXPECT_EQ(topics.Events(), "ominspect/room%2F12/events");
    EXPECT_EQ(topics.Run("desk"), "ominspect/room%2F12/run/desk");
    EXPECT_EQ(topics.Collect("desk"), "ominspect/room%2F12/collect/desk");
}

TEST(MqttTopics, AnswersGoBelowReplyOnly) {
    const Topics topics("room12");
    EXPECT_TRUE(topics.IsReply("ominspect/room12/reply/desk/7"));
    for (const std::string topic : {"", "ominspect/room12/reply/", "ominspect/room12/status",
                                    "ominspect/room13/reply/x", "ominspect/room12/reply/+", "ominspect/room12/reply/#",
                                    "ominspect/room12/reply/a\n", "ominspect/room12/reply/\xFF"}) {
        EXPECT_FALSE(topics.IsReply(topic)) << topic;
    }
    EXPECT_FALSE(topics.IsReply("ominspect/room12/reply/" + std::string(512, 'x')));
}

}  // namespace
