// Text from outside: UTF-8 checking, escaping, cleaning, cutting.
#include "text/text.h"

#include <gtest/gtest.h>

#include <string>

using namespace ominspect;

namespace {

// Letter by letter: written as one literal it would turn the direction of this file.
const std::string kRightToLeftOverride{'\xE2', '\x80', '\xAE'};

TEST(Utf8, CharactersHaveTheirLength) {
    EXPECT_EQ(text::CharacterLength("a", 0), 1U);
    EXPECT_EQ(text::CharacterLength("\xC3\xA4", 0), 2U);
    EXPECT_EQ(text::CharacterLength("\xE2\x82\xAC", 0), 3U);
    EXPECT_EQ(text::CharacterLength("\xF0\x9F\x98\x80", 0), 4U);
    EXPECT_EQ(text::CharacterLength(std::string_view("\0", 1), 0), 1U);
}

TEST(Utf8, IllFormedBytesAreNoCharacter) {
    EXPECT_EQ(text::CharacterLength("", 0), 0U);
    EXPECT_EQ(text::CharacterLength("\x80", 0), 0U) << "a continuation byte alone";
    EXPECT_EQ(text::CharacterLength("\xC3", 0), 0U) << "cut short";
    EXPECT_EQ(text::CharacterLength("\xC3(", 0), 0U) << "no continuation";
    EXPECT_EQ(text::CharacterLength("\xC0\xAF", 0), 0U) << "overlong '/'";
    EXPECT_EQ(text::CharacterLength("\xE0\x80\xAF", 0), 0U) << "overlong '/'";
    EXPECT_EQ(text::CharacterLength("\xED\xA0\x80", 0), 0U) << "a surrogate";
    EXPECT_EQ(text::CharacterLength("\xF4\x90\x80\x80", 0), 0U) << "beyond U+10FFFF";
    EXPECT_EQ(text::CharacterLength("\xFF", 0), 0U);
}

TEST(PlainText, HasNoControlCharactersAndNoStrayBytes) {
    EXPECT_TRUE(text::IsPlain("conf_sip_ft \xC3\xA4"));
    EXPECT_FALSE(text::IsPlain("a\nb"));
    EXPECT_FALSE(text::IsPlain("a\x7F"));
    EXPECT_FALSE(
        text::IsPlain("\xC2\x9B"
                      "2J"))
        << "the one-character form of ESC [";
    EXPECT_FALSE(text::IsPlain(kRightToLeftOverride));
    EXPECT_FALSE(text::IsPlain("\xFF"));
}

TEST(EscapedText, ShowsEveryHiddenByte) {
    EXPECT_EQ(text::Escaped("a\n\r\tb"), R"(a\n\r\tb)");
    EXPECT_EQ(text::Escaped("\x1B[31m"), R"(\u{1B}[31m)");
    EXPECT_EQ(text::Escaped(kRightToLeftOverride), R"(\u{202E})");
    EXPECT_EQ(text::Escaped("\xFFz"), R"(\xffz)");
    EXPECT_EQ(text::Escaped(std::string_view("\0", 1)), R"(\u{0})");
    EXPECT_EQ(text::Escaped("\xC3\xA4"), "\xC3\xA4");
}

TEST(EscapedText, TellsABackslashFromAnEscape) {
    EXPECT_EQ(text::Escaped(R"(a\nb)"), R"(a\\nb)");
    EXPECT_NE(text::Escaped(R"(\n)"), text::Escaped("\n"));
}

TEST(Utf8Text, ReplacesEachStrayByte) {
    EXPECT_EQ(text::ToUtf8("a\xFF\xFE"
                           "b\xC3"),
              "a\xEF\xBF\xBD\xEF\xBF\xBD"
              "b\xEF\xBF\xBD");
    EXPECT_EQ(text::ToUtf8("\xC3\xA4\n"), "\xC3\xA4\n");
}

TEST(OneLineText, HasBlanksForControlsAndQuestionMarksForStrayBytes) {
    EXPECT_EQ(text::OneLine("a\tb\x1B\xFF\xC3\xA4"), "a b ?\xC3\xA4");
}

TEST(CutText, EndsBetweenCharacters) {
    EXPECT_EQ(text::Cut("abc", 3), "abc");
    EXPECT_EQ(text::Cut("abc", 2), "ab");
    EXPECT_EQ(text::Cut("a\xC3\xA4", 2), "a");
    EXPECT_EQ(text::Cut("a\xF0\x9F\x98\x80", 4), "a");
    EXPECT_EQ(text::Cut("\xF0\x9F\x98\x80z", 4), "\xF0\x9F\x98\x80");
    EXPECT_EQ(text::Cut("\xC3\xA4", 0), "");
}

TEST(EscapedJson, EscapesWhatJsonLeavesAsItIs) {
    EXPECT_EQ(text::EscapedJson("{\"a\":\"\xC2\x9B"
                                "2J\x7F \xE2\x80\xAE \xC3\xA4\"}"),
              "{\"a\":\"\\u009b2J\\u007f \\u202e \xC3\xA4\"}");
    EXPECT_EQ(text::EscapedJson("{\n\t\"a\":1}"), "{\n\t\"a\":1}");
}

}  // namespace
