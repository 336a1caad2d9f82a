// Reading of envelopes and payloads.
#include "handlers/payload.h"

#include <gtest/gtest.h>

#include <string>

#include "support/envelope.h"

using support::Envelope;
using namespace std::string_view_literals;

TEST(PayloadTest, IsThereOnlyWithDataAndLength) {
    EXPECT_TRUE(HasPayload(*Envelope(0, "x").Get()));
    EXPECT_FALSE(HasPayload(*Envelope(0).Get()));
    Envelope noLength(0, "x");
    noLength.Get()->dataLen = 0;
    EXPECT_FALSE(HasPayload(*noLength.Get()));
    Envelope noData(0);
    noData.Get()->dataLen = 5;
    EXPECT_FALSE(HasPayload(*noData.Get()));
}

TEST(PayloadTest, TextIsAllItsBytes) {
    EXPECT_EQ(PayloadText(*Envelope(0, "a\0b\0"sv).Get()), "a\0b\0"sv);
}

TEST(PayloadTest, NameEndsAtTheFirstNul) {
    EXPECT_EQ(PayloadName(*Envelope(0, "ab\0cd"sv).Get()), "ab");
    EXPECT_EQ(PayloadName(*Envelope(0, "\0cd"sv).Get()), "");
}

TEST(PayloadTest, NameWithoutNulEndsWithThePayload) {
    Envelope message(0, "abcdef");
    message.Get()->dataLen = 3;
    EXPECT_EQ(PayloadName(*message.Get()), "abc");
}

TEST(PayloadTest, TextsEndAtTheFirstEmptyOne) {
    using Texts = std::vector<std::string>;
    EXPECT_EQ(PayloadTexts(*Envelope(0, "a\0bc\0\0"sv).Get()), (Texts{"a", "bc"}));
    EXPECT_EQ(PayloadTexts(*Envelope(0, "a\0\0b\0\0"sv).Get()), Texts{"a"});
    EXPECT_EQ(PayloadTexts(*Envelope(0, "\0\0\0"sv).Get()), Texts{});
}

TEST(PayloadTest, TheLastTextMayLackItsNul) {
    using Texts = std::vector<std::string>;
    EXPECT_EQ(PayloadTexts(*Envelope(0, "a\0"sv).Get()), Texts{"a"});
    Envelope message(0, "a\0bcdef"sv);
    message.Get()->dataLen = 4;
    EXPECT_EQ(PayloadTexts(*message.Get()), (Texts{"a", "bc"}));
    message.Get()->dataLen = 2;
    EXPECT_EQ(PayloadTexts(*message.Get()), Texts{"a"});
}

TEST(PayloadTest, ClientIsTheSendersProcessAndReplyTask) {
    const InspectClientMsg client = ClientOf(*Envelope(0).From("proc", "task", "reply").Get());
    EXPECT_EQ(client.procName, "proc");
    EXPECT_EQ(client.taskName, "reply");
}

TEST(PayloadTest, ClientNamesWithoutNulAreReadToTheirEnds) {
    const InspectClientMsg client = ClientOf(*Envelope(0).From("sixteen_letters_", "t", "SIXTEEN_LETTERS_").Get());
    EXPECT_EQ(client.procName, "sixteen_letters_");
    EXPECT_EQ(client.taskName, "SIXTEEN_LETTERS_");
}
