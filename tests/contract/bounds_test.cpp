// Bounds-checked memory and string functions.
#include "kivo/os_bounds.h"

#include <array>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace {

using Buffer = std::array<char, 8>;

// Destinations start like this, so that every byte that is written shows.
constexpr Buffer kUntouched = {'#', '#', '#', '#', '#', '#', '#', '#'};

// To the compiler these might be anything: it does not warn of what is tested on purpose.
const char* volatile g_null = nullptr;
volatile size_t g_negative = static_cast<size_t>(-1);

int Format(char* dest, size_t destMax, size_t count, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int written = vsnprintf_s(dest, destMax, count, format, args);
    va_end(args);
    return written;
}

std::string_view Text(const Buffer& buffer) {
    return buffer.data();
}

}  // namespace

TEST(MemcpyS, CopiesUpToTheWholeDestination) {
    Buffer dest = kUntouched;
    EXPECT_EQ(memcpy_s(dest.data(), 4, "ab\0d", 4), 0);
    EXPECT_EQ(std::memcmp(dest.data(), "ab\0d####", 8), 0);
}

TEST(MemcpyS, CountZeroWithValidPointersCopiesNothing) {
    Buffer dest = kUntouched;
    EXPECT_EQ(memcpy_s(dest.data(), 8, "abc", 0), 0);
    EXPECT_EQ(dest, kUntouched);
}

TEST(MemcpyS, CountAboveTheDestinationLeavesItUntouched) {
    Buffer dest = kUntouched;
    EXPECT_EQ(memcpy_s(dest.data(), 4, "abcde", 5), 34);
    EXPECT_EQ(memcpy_s(dest.data(), 4, "abcde", g_negative), 34);
    EXPECT_EQ(dest, kUntouched);
}

TEST(MemcpyS, ZeroSizeIsRefusedEvenForCountZero) {
    Buffer dest = kUntouched;
    EXPECT_EQ(memcpy_s(dest.data(), 0, "a", 1), 34);
    EXPECT_EQ(memcpy_s(dest.data(), 0, "a", 0), 34);
    EXPECT_EQ(dest, kUntouched);
}

TEST(MemcpyS, NegativeSizeIsRefused) {
    Buffer dest = kUntouched;
    EXPECT_EQ(memcpy_s(dest.data(), g_negative, "a", 1), 34);
    EXPECT_EQ(dest, kUntouched);
}

TEST(MemcpyS, NullPointersAreRefused) {
    Buffer dest = kUntouched;
    EXPECT_EQ(memcpy_s(nullptr, 8, "a", 1), 22);
    EXPECT_EQ(memcpy_s(dest.data(), 8, g_null, 1), 22);
    EXPECT_EQ(memcpy_s(dest.data(), 8, g_null, 0), 22);
    EXPECT_EQ(dest, kUntouched);
}

TEST(MemcpyS, OverlapInEitherDirectionIsRefused) {
    Buffer memory = {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h'};
    const Buffer before = memory;
    EXPECT_EQ(memcpy_s(memory.data() + 2, 6, memory.data(), 3), 22);
    EXPECT_EQ(memcpy_s(memory.data(), 8, memory.data() + 2, 3), 22);
    EXPECT_EQ(memcpy_s(memory.data(), 8, memory.data(), 1), 22);
    EXPECT_EQ(memory, before);
}

TEST(MemcpyS, NeighboursDoNotOverlap) {
    Buffer memory = {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h'};
    EXPECT_EQ(memcpy_s(memory.data() + 4, 4, memory.data(), 4), 0);
    EXPECT_EQ(std::string_view(memory.data(), 8), "abcdabcd");
}

TEST(MemsetS, SetsUpToTheWholeDestination) {
    Buffer dest = kUntouched;
    EXPECT_EQ(memset_s(dest.data(), 3, 'x', 3), 0);
    EXPECT_EQ(std::string_view(dest.data(), 8), "xxx#####");
    EXPECT_EQ(memset_s(dest.data(), 8, 'y', 0), 0);
    EXPECT_EQ(std::string_view(dest.data(), 8), "xxx#####");
    EXPECT_EQ(memset_s(dest.data(), 8, 0x141, 1), 0);  // as memset does, only the low byte
    EXPECT_EQ(dest[0], 'A');
}

TEST(MemsetS, ViolationsLeaveTheDestinationUntouched) {
    Buffer dest = kUntouched;
    EXPECT_EQ(memset_s(nullptr, 8, 0, 1), 22);
    EXPECT_EQ(memset_s(dest.data(), 4, 0, 5), 34);
    EXPECT_EQ(memset_s(dest.data(), 0, 0, 0), 34);
    EXPECT_EQ(memset_s(dest.data(), g_negative, 0, 1), 34);
    EXPECT_EQ(dest, kUntouched);
}

TEST(StrcpyS, CopiesATextThatJustFits) {
    Buffer dest = kUntouched;
    EXPECT_EQ(strcpy_s(dest.data(), 8, "1234567"), 0);
    EXPECT_EQ(Text(dest), "1234567");
    EXPECT_EQ(strcpy_s(dest.data(), 1, ""), 0);
    EXPECT_EQ(Text(dest), "");
}

TEST(StrcpyS, WritesNothingBehindTheCopiedText) {
    Buffer dest = kUntouched;
    EXPECT_EQ(strcpy_s(dest.data(), 8, "ab"), 0);
    EXPECT_EQ(std::memcmp(dest.data(), "ab\0#####", 8), 0);
}

TEST(StrcpyS, TextThatDoesNotFitGivesTheEmptyText) {
    Buffer dest = kUntouched;
    EXPECT_EQ(strcpy_s(dest.data(), 4, "1234"), 34);
    EXPECT_EQ(std::memcmp(dest.data(), "\0###", 4), 0);
}

TEST(StrcpyS, ReadsNoFurtherThanTheDestinationReaches) {
    Buffer dest = kUntouched;
    const auto source = std::make_unique<char[]>(4);  // a read of a fifth byte shows under the sanitizer
    std::memcpy(source.get(), "efgh", 4);
    EXPECT_EQ(strcpy_s(dest.data(), 4, source.get()), 34);
    EXPECT_EQ(Text(dest), "");
}

TEST(StrcpyS, NullSourceGivesTheEmptyText) {
    Buffer dest = kUntouched;
    EXPECT_EQ(strcpy_s(dest.data(), 8, g_null), 22);
    EXPECT_EQ(std::memcmp(dest.data(), "\0###", 4), 0);
}

TEST(StrcpyS, UnusableDestinationIsRefused) {
    Buffer dest = kUntouched;
    EXPECT_EQ(strcpy_s(nullptr, 8, "a"), 22);
    EXPECT_EQ(strcpy_s(dest.data(), 0, "a"), 34);
    EXPECT_EQ(strcpy_s(dest.data(), g_negative, "a"), 34);
    EXPECT_EQ(dest, kUntouched);
}

TEST(StrcpyS, OverlapGivesTheEmptyText) {
    Buffer memory = {'a', 'b', 'c', '\0', '#', '#', '#', '#'};
    EXPECT_EQ(strcpy_s(memory.data() + 2, 6, memory.data()), 22);
    EXPECT_EQ(memory[2], '\0');
    memory = {'a', 'b', 'c', '\0', '#', '#', '#', '#'};
    EXPECT_EQ(strcpy_s(memory.data(), 8, memory.data() + 3), 0);  // the empty text at 3, written to 0
    EXPECT_EQ(strcpy_s(memory.data(), 8, memory.data()), 22);
}

TEST(StrncpyS, CopiesAtMostCountCharactersAndTerminates) {
    Buffer dest = kUntouched;
    EXPECT_EQ(strncpy_s(dest.data(), 8, "abcdef", 3), 0);
    EXPECT_EQ(std::memcmp(dest.data(), "abc\0####", 8), 0);
    EXPECT_EQ(strncpy_s(dest.data(), 8, "ab", 7), 0);
    EXPECT_EQ(Text(dest), "ab");
    EXPECT_EQ(strncpy_s(dest.data(), 3, "ab", g_negative), 0);
    EXPECT_EQ(Text(dest), "ab");
    EXPECT_EQ(strncpy_s(dest.data(), 1, "ab", 0), 0);
    EXPECT_EQ(Text(dest), "");
}

TEST(StrncpyS, DoesNotReadBehindCountCharacters) {
    Buffer dest = kUntouched;
    const auto source = std::make_unique<char[]>(4);  // a read of a fifth byte shows under the sanitizer
    std::memcpy(source.get(), "efgh", 4);
    EXPECT_EQ(strncpy_s(dest.data(), 8, source.get(), 4), 0);
    EXPECT_EQ(Text(dest), "efgh");
}

TEST(StrncpyS, CopiedPartThatDoesNotFitGivesTheEmptyText) {
    Buffer dest = kUntouched;
    EXPECT_EQ(strncpy_s(dest.data(), 3, "abcdef", 3), 34);
    EXPECT_EQ(std::memcmp(dest.data(), "\0##", 3), 0);
}

TEST(StrncpyS, NullSourceIsRefusedEvenForCountZero) {
    Buffer dest = kUntouched;
    EXPECT_EQ(strncpy_s(dest.data(), 8, g_null, 0), 22);
    EXPECT_EQ(std::memcmp(dest.data(), "\0###", 4), 0);
    EXPECT_EQ(strncpy_s(dest.data(), 8, g_null, 3), 22);
}

TEST(StrncpyS, UnusableDestinationIsRefused) {
    Buffer dest = kUntouched;
    EXPECT_EQ(strncpy_s(nullptr, 8, "a", 1), 22);
    EXPECT_EQ(strncpy_s(dest.data(), 0, "a", 0), 34);
    EXPECT_EQ(strncpy_s(dest.data(), g_negative, "a", 1), 34);
    EXPECT_EQ(dest, kUntouched);
}

TEST(StrncpyS, OverlapGivesTheEmptyTextAndNeighboursAreFine) {
    Buffer memory = {'a', 'b', 'c', 'd', '#', '#', '#', '#'};
    EXPECT_EQ(strncpy_s(memory.data() + 4, 4, memory.data() + 1, 3), 0);
    EXPECT_EQ(std::string_view(memory.data() + 4), "bcd");
    EXPECT_EQ(strncpy_s(memory.data() + 2, 6, memory.data(), 3), 22);
    EXPECT_EQ(memory[2], '\0');
}

TEST(SprintfS, FormatsATextThatJustFits) {
    Buffer dest = kUntouched;
    EXPECT_EQ(sprintf_s(dest.data(), 8, "%s-%u", "abcd", 12U), 7);
    EXPECT_EQ(Text(dest), "abcd-12");
    EXPECT_EQ(sprintf_s(dest.data(), 1, "%s", ""), 0);
    EXPECT_EQ(Text(dest), "");
}

TEST(SprintfS, TextThatDoesNotFitGivesTheEmptyText) {
    Buffer dest = kUntouched;
    EXPECT_EQ(sprintf_s(dest.data(), 7, "%s-%u", "abcd", 12U), -1);
    EXPECT_EQ(Text(dest), "");
    EXPECT_EQ(dest[7], '#');
}

TEST(SprintfS, NullPointersAndUnusableSizesAreRefused) {
    Buffer dest = kUntouched;
    EXPECT_EQ(sprintf_s(nullptr, 8, "%d", 1), -1);
    EXPECT_EQ(sprintf_s(dest.data(), 0, "%d", 1), -1);
    EXPECT_EQ(sprintf_s(dest.data(), g_negative, "%d", 1), -1);
    EXPECT_EQ(dest, kUntouched);
    EXPECT_EQ(sprintf_s(dest.data(), 8, g_null, 1), -1);
    EXPECT_EQ(Text(dest), "");
}

TEST(SprintfS, FormatInErrorGivesTheEmptyText) {
    Buffer dest = kUntouched;
    const std::array<wchar_t, 2> noCharacter = {static_cast<wchar_t>(0x7fffffff), L'\0'};
    EXPECT_EQ(sprintf_s(dest.data(), 8, "ab%ls", noCharacter.data()), -1);
    EXPECT_EQ(Text(dest), "");
}

TEST(VsnprintfS, LongerTextIsCutAfterCountCharacters) {
    Buffer dest = kUntouched;
    EXPECT_EQ(Format(dest.data(), 8, 4, "%s", "abcdefghijkl"), 4);
    EXPECT_EQ(std::memcmp(dest.data(), "abcd\0###", 8), 0);
    EXPECT_EQ(Format(dest.data(), 8, 7, "%s", "abcdefghijkl"), 7);
    EXPECT_EQ(Text(dest), "abcdefg");
    EXPECT_EQ(Format(dest.data(), 8, 0, "%s", "abc"), 0);
    EXPECT_EQ(Text(dest), "");
}

TEST(VsnprintfS, TextWithinCountIsKeptWhole) {
    Buffer dest = kUntouched;
    EXPECT_EQ(Format(dest.data(), 8, 4, "%s", "abcd"), 4);
    EXPECT_EQ(Text(dest), "abcd");
    EXPECT_EQ(Format(dest.data(), 8, 6, "%d", -12), 3);
    EXPECT_EQ(Text(dest), "-12");
    EXPECT_EQ(Format(dest.data(), 8, 8, "%s", "abcdefg"), 7);
    EXPECT_EQ(Text(dest), "abcdefg");
}

TEST(VsnprintfS, TextThatDoesNotFitIsAnErrorWhenCountLeavesNoRoomToCut) {
    Buffer dest = kUntouched;
    EXPECT_EQ(Format(dest.data(), 4, 4, "%s", "abcd"), -1);
    EXPECT_EQ(std::memcmp(dest.data() + 4, "####", 4), 0);
    EXPECT_EQ(Text(dest), "");
    dest = kUntouched;
    EXPECT_EQ(Format(dest.data(), 4, g_negative, "%s", "abcd"), -1);
    EXPECT_EQ(Text(dest), "");
    EXPECT_EQ(std::memcmp(dest.data() + 4, "####", 4), 0);
}

TEST(VsnprintfS, NullPointersAndUnusableSizesAreRefused) {
    Buffer dest = kUntouched;
    EXPECT_EQ(Format(nullptr, 8, 4, "%d", 1), -1);
    EXPECT_EQ(Format(dest.data(), 0, 0, "%d", 1), -1);
    EXPECT_EQ(Format(dest.data(), g_negative, 4, "%d", 1), -1);
    EXPECT_EQ(dest, kUntouched);
    EXPECT_EQ(Format(dest.data(), 8, 4, g_null, 1), -1);
    EXPECT_EQ(Text(dest), "");
}

TEST(VsnprintfS, FormatInErrorGivesTheEmptyText) {
    Buffer dest = kUntouched;
    const std::array<wchar_t, 2> noCharacter = {static_cast<wchar_t>(0x7fffffff), L'\0'};
    EXPECT_EQ(Format(dest.data(), 8, 7, "ab%ls", noCharacter.data()), -1);
    EXPECT_EQ(Text(dest), "");
}

TEST(VsnprintfS, CutsAMessageOfFiveHundredCharactersTo399) {
    std::array<char, 400> line{};
    EXPECT_EQ(Format(line.data(), 400, 399, "%s", std::string(500, 'm').c_str()), 399);
    EXPECT_EQ(std::string_view(line.data()), std::string(399, 'm'));
}
