// The form of log lines: head, cutting and escaping.
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "kivo/om_log_client.h"
#include "linux/log_reader.h"
#include "platform_control.h"
#include "thread_starter.h"

namespace fs = std::filesystem;

namespace {

using support::ParsedLine;

class LogLineTest : public support::ContractTest {
protected:
    void SetUp() override {
        ContractTest::SetUp();
        ASSERT_EQ(KivoOmLogClientInit("suite", 5), 0U);
    }

    static KivoOmLogHandle Create(uint32_t lineSize = 512) {
        KivoOmLogCreation creation{lineSize, 2, 2097152, {}};
        std::strncpy(creation.fileName, "contract.log", sizeof creation.fileName);
        KivoOmLogHandle handle = 0;
        EXPECT_EQ(KivoOmLogCreateLog(&creation, &handle), 0U);
        return handle;
    }

    static std::vector<std::string> Lines() { return support::FileLines(support::LogDirectory() / "contract.log"); }

    /// The one line that is in the log, taken apart.
    static ParsedLine OnlyLine() {
        const std::vector<std::string> lines = Lines();
        EXPECT_EQ(lines.size(), 1U);
        const auto parsed = support::Parse(lines.empty() ? "" : lines[0]);
        EXPECT_TRUE(parsed);
        return parsed.value_or(ParsedLine{});
    }

    static std::string TextOf(const std::string& logged) {
        const KivoOmLogHandle handle = Create();
        KivoOmLogModuleLogRecord(1, handle, "unit", 1, 1, "%s", logged.c_str());
        return OnlyLine().line.text;
    }
};

/// Of the clock that the log reads: time() may still tell the second before for some milliseconds.
std::string LocalTime() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    std::array<char, 32> text{};
    strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
    return text.data();
}

}  // namespace

TEST_F(LogLineTest, HeadTellsTimeClientProcessAndThread) {
    const KivoOmLogHandle handle = Create();
    const std::string before = LocalTime();
    KivoOmLogModuleLogRecord(1, handle, "unit", 1, 1, "%s", "text");
    const std::string after = LocalTime();
    const ParsedLine line = OnlyLine();
    EXPECT_GE(line.time, before);
    EXPECT_LE(line.time.substr(0, 19), after);
    EXPECT_EQ(line.client, "suite");
    EXPECT_EQ(line.process, getpid());
    EXPECT_EQ(line.thread, gettid());
}

TEST_F(LogLineTest, ThreadIsTheOneThatLogs) {
    const KivoOmLogHandle handle = Create();
    std::atomic<long> thread{0};
    support::StartThread([&] {
        KivoOmLogModuleLogRecord(1, handle, "unit", 1, 1, "%s", "text");
        thread = gettid();
    });
    EXPECT_TRUE(support::WaitFor([&] { return thread != 0; }));
    EXPECT_EQ(OnlyLine().thread, thread);
    EXPECT_NE(OnlyLine().thread, gettid());
}

TEST_F(LogLineTest, ProcessAndThreadOfAChildAreItsOwn) {
    const KivoOmLogHandle handle = Create();
    KivoOmLogModuleLogRecord(1, handle, "unit", 1, 1, "%s", "parent");
    const pid_t child = fork();
    if (child == 0) {
        KivoOmLogModuleLogRecord(1, handle, "unit", 1, 1, "%s", "child");
        _exit(0);
    }
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    const std::vector<std::string> lines = Lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(support::Parse(lines[1])->process, child);
    EXPECT_EQ(support::Parse(lines[1])->thread, child);
}

TEST_F(LogLineTest, WholeLineLooksLikeThis) {
    const KivoOmLogHandle handle = Create();
    KivoOmLogModuleLogRecord(1, handle, "inspect_server", 18, 201, "%s", "a text");
    KivoOmLogGeneralLogRecord(3, handle, "unit", 7, "%s", "b");
    KivoOmLogGeneralLogRecord(2, handle, nullptr, 8, "%s", "c");
    KivoOmLogGeneralLogRecord(9, handle, "unit", 9, "%s", "d");
    const std::string where = ' ' + std::to_string(getpid()) + ':' + std::to_string(gettid()) + ' ';
    const std::vector<std::string> lines = Lines();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0].substr(23), " error suite inspect_server/18:201" + where + "a text");
    EXPECT_EQ(lines[1].substr(23), " info suite unit/-:7" + where + "b");
    EXPECT_EQ(lines[2].substr(23), " warning suite -/-:8" + where + "c");
    EXPECT_EQ(lines[3].substr(23), " level9 suite unit/-:9" + where + "d");
}

TEST_F(LogLineTest, LongLineIsCutToTheLineSizeWithItsEnd) {
    const KivoOmLogHandle handle = Create(512);
    KivoOmLogModuleLogRecord(1, handle, "unit", 1, 1, "%s", std::string(399, 'm').c_str());
    KivoOmLogModuleLogRecord(1, handle, "unit", 1, 2, "%s", std::string(5000, 'm').c_str());
    KivoOmLogModuleLogRecord(1, handle, "unit", 1, 3, "%s", "next");
    const std::vector<std::string> lines = Lines();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(support::Parse(lines[0])->line.text, std::string(399, 'm'));
    EXPECT_EQ(lines[1].size(), 511U);
    EXPECT_EQ(support::Parse(lines[1])->line.text.find_first_not_of('m'), std::string::npos);
    EXPECT_EQ(support::Parse(lines[2])->line.text, "next");
}

TEST_F(LogLineTest, LineSizeSmallerThanTheHeadCutsTheHead) {
    const KivoOmLogHandle handle = Create(11);
    KivoOmLogModuleLogRecord(1, handle, "unit", 1, 1, "%s", "text");
    ASSERT_EQ(Lines().size(), 1U);
    EXPECT_EQ(Lines()[0], LocalTime().substr(0, 10));
}

TEST_F(LogLineTest, LineEndsInsideTheTextAreEscapedSoThatNobodyForgesALine) {
    EXPECT_EQ(TextOf("good\n2024-01-01 00:00:00.000 error suite unit/1:1 1:1 forged\r\nmore"),
              R"(good\n2024-01-01 00:00:00.000 error suite unit/1:1 1:1 forged\r\nmore)");
}

TEST_F(LogLineTest, TrailingLineEndsAreDropped) {
    EXPECT_EQ(TextOf("Fail to create dir: /data\n\r\n"), "Fail to create dir: /data");
}

TEST_F(LogLineTest, EmptyTextIsEmpty) {
    EXPECT_EQ(TextOf(""), "");
}

TEST_F(LogLineTest, TextOfLineEndsOnlyIsEmpty) {
    EXPECT_EQ(TextOf("\n\n"), "");
}

TEST_F(LogLineTest, OtherControlCharactersAreEscapedToo) {
    EXPECT_EQ(TextOf("\x1b[31mred\x07\ttab\x7f end"), R"(\x1b[31mred\x07\ttab\x7f end)");
}

TEST_F(LogLineTest, ControlCharactersOfTwoBytesAreEscapedAndOtherLettersAreNot) {
    EXPECT_EQ(TextOf("next\xC2\x85line \xC3\x9F \xC2\xA7 \xE2\x82\xAC"),
              "next\\xc2\\x85line \xC3\x9F \xC2\xA7 \xE2\x82\xAC");
}

TEST_F(LogLineTest, UnitCannotForgeALineEither) {
    const KivoOmLogHandle handle = Create();
    KivoOmLogModuleLogRecord(1, handle, "unit\nforged", 1, 1, "%s", "text");
    EXPECT_EQ(OnlyLine().line.unit, "unit\\nforged");
}

TEST_F(LogLineTest, CutDoesNotSplitAnEscape) {
    for (uint32_t lineSize = 100; lineSize < 105; ++lineSize) {
        SCOPED_TRACE(lineSize);
        ASSERT_EQ(KivoOmLogClientUnInit(), 0U);
        ASSERT_EQ(KivoOmLogClientInit("suite", 5), 0U);
        fs::remove(support::LogDirectory() / "contract.log");
        KivoOmLogModuleLogRecord(1, Create(lineSize), "unit", 1, 1, "%s", std::string(100, '\x01').c_str());
        const std::string text = OnlyLine().line.text;
        EXPECT_EQ(text.size() % 4, 0U);
        EXPECT_EQ(text.substr(text.size() - 4), "\\x01");
        EXPECT_LE(fs::file_size(support::LogDirectory() / "contract.log"), lineSize);
    }
}

TEST_F(LogLineTest, FormatThatFailsIsLoggedAsItStands) {
    const KivoOmLogHandle handle = Create();
    const std::array<wchar_t, 2> noCharacter = {static_cast<wchar_t>(0x7fffffff), L'\0'};
    KivoOmLogModuleLogRecord(1, handle, "unit", 1, 1, "name %ls", noCharacter.data());
    EXPECT_EQ(OnlyLine().line.text, "name %ls");
}
