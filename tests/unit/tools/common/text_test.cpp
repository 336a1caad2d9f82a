// Text from outside: UTF-8 checking, escaping, cleaning, cutting.
#include "common/text.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

using namespace ominspect;

namespace {

// Letter by letter: written as one literal it would turn the direction of this file.
const std::string kRightToLeftOverride{'\xE2', '\x80', '\xAE'};

// As many U+FFFD as there are stray bytes.
std::size_t StrayBytes(std::string_view text) {
    return (text::ToUtf8(text).size() - text.size()) / 2;
}

TEST(Text, CharactersOfAnyLengthAreNoStrayBytes) {
    for (const std::string_view character :
         {std::string_view("a"), std::string_view("\xC3\xA4"), std::string_view("\xE2\x82\xAC"),
          std::string_view("\xF0\x9F\x98\x80"), std::string_view("\0", 1), std::string_view("")}) {
        EXPECT_EQ(text::ToUtf8(character), character);
    }
}

TEST(Text, IllFormedBytesAreStray) {
    EXPECT_EQ(StrayBytes("\x80"), 1U) << "a continuation byte alone";
    EXPECT_EQ(StrayBytes("\xC3"), 1U) << "cut short";
    EXPECT_EQ(StrayBytes("\xC3("), 1U) << "no continuation";
    EXPECT_EQ(StrayBytes("\xC0\xAF"), 2U) << "overlong '/'";
    EXPECT_EQ(StrayBytes("\xE0\x80\xAF"), 3U) << "overlong '/'";
    EXPECT_EQ(StrayBytes("\xED\xA0\x80"), 3U) << "a surrogate";
    EXPECT_EQ(StrayBytes("\xF4\x90\x80\x80"), 4U) << "beyond U+10FFFF";
    EXPECT_EQ(StrayBytes("\xFF"), 1U);
}

TEST(Text, WidthIsThatOfATerminal) {
    EXPECT_EQ(text::WidthOf(""), 0U);
    EXPECT_EQ(text::WidthOf("gr\xC3\xBCn"), 4U);
    EXPECT_EQ(text::WidthOf("\xE6\x97\xA5\xE6\x9C\xAC"), 4U) << "two wide characters";
    EXPECT_EQ(text::WidthOf("e\xCC\x81"), 1U) << "an accent over a letter";
    EXPECT_EQ(text::WidthOf("a\xFF"), 2U) << "a stray byte";
}

TEST(Text, CutToWidthCutsNoCharacter) {
    EXPECT_EQ(text::CutToWidth("\xC3\xA4z", 1), "\xC3\xA4");
    EXPECT_EQ(text::CutToWidth("\xC3\xA4z", 2), "\xC3\xA4z");
    EXPECT_EQ(text::CutToWidth("\xC3\xA4z", 9), "\xC3\xA4z");
    EXPECT_EQ(text::CutToWidth("ab", 0), "");
    EXPECT_EQ(text::CutToWidth("\xE6\x97\xA5\xE6\x9C\xAC", 3), "\xE6\x97\xA5") << "a wide one does not fit any more";
    EXPECT_EQ(text::CutToWidth("e\xCC\x81x", 1), "e\xCC\x81");
}

TEST(Text, PlainTextHasNoControlCharactersAndNoStrayBytes) {
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

TEST(Text, EscapedShowsEveryHiddenByte) {
    EXPECT_EQ(text::Escaped("a\n\r\tb"), R"(a\n\r\tb)");
    EXPECT_EQ(text::Escaped("\x1B[31m"), R"(\u{1B}[31m)");
    EXPECT_EQ(text::Escaped(kRightToLeftOverride), R"(\u{202E})");
    EXPECT_EQ(text::Escaped("\xFFz"), R"(\xffz)");
    EXPECT_EQ(text::Escaped(std::string_view("\0", 1)), R"(\u{0})");
    EXPECT_EQ(text::Escaped("\xC3\xA4"), "\xC3\xA4");
}

TEST(Text, EscapedTellsABackslashFromAnEscape) {
    EXPECT_EQ(text::Escaped(R"(a\nb)"), R"(a\\nb)");
    EXPECT_NE(text::Escaped(R"(\n)"), text::Escaped("\n"));
}

TEST(Text, ToUtf8ReplacesEachStrayByte) {
    EXPECT_EQ(text::ToUtf8("a\xFF\xFE"
                           "b\xC3"),
              "a\xEF\xBF\xBD\xEF\xBF\xBD"
              "b\xEF\xBF\xBD");
    EXPECT_EQ(text::ToUtf8("\xC3\xA4\n"), "\xC3\xA4\n");
}

TEST(Text, OneLineHasBlanksForControlsAndQuestionMarksForStrayBytes) {
    EXPECT_EQ(text::OneLine("a\tb\x1B\xFF\xC3\xA4"), "a b ?\xC3\xA4");
}

TEST(Text, CutEndsBetweenCharacters) {
    EXPECT_EQ(text::Cut("abc", 3), "abc");
    EXPECT_EQ(text::Cut("abc", 2), "ab");
    EXPECT_EQ(text::Cut("a\xC3\xA4", 2), "a");
    EXPECT_EQ(text::Cut("a\xF0\x9F\x98\x80", 4), "a");
    EXPECT_EQ(text::Cut("\xF0\x9F\x98\x80z", 4), "\xF0\x9F\x98\x80");
    EXPECT_EQ(text::Cut("\xC3\xA4", 0), "");
}

TEST(Text, EscapedJsonEscapesWhatJsonLeavesAsItIs) {
    EXPECT_EQ(text::EscapedJson("{\"a\":\"\xC2\x9B"
                                "2J\x7F \xE2\x80\xAE \xC3\xA4\"}"),
              "{\"a\":\"\\u009b2J\\u007f \\u202e \xC3\xA4\"}");
    EXPECT_EQ(text::EscapedJson("{\n\t\"a\":1}"), "{\n\t\"a\":1}");
}

}  // namespace
