// Log files on disk: rotation, reopening, and what happens when they cannot be written.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kivo/om_log_client.h"
#include "linux/file_size_limit.h"
#include "linux/log_reader.h"
#include "linux/memory_shortage.h"
#include "platform_control.h"
#include "support/process_state.h"
#include "thread_starter.h"

namespace fs = std::filesystem;

namespace {

class LogFileTest : public support::ContractTest {
protected:
    void SetUp() override {
        ContractTest::SetUp();
        Init();
    }

    static void Init() { ASSERT_EQ(KivoOmLogClientInit("suite", 5), 0U); }

    static uint32_t TryCreate(KivoOmLogHandle& handle, uint32_t lineSize = 512, uint32_t fileCount = 2,
                              uint32_t fileSize = 2097152) {
        KivoOmLogCreation creation{lineSize, fileCount, fileSize, {}};
        std::strncpy(creation.fileName, "contract.log", sizeof creation.fileName);
        return KivoOmLogCreateLog(&creation, &handle);
    }

    static KivoOmLogHandle Create(uint32_t lineSize = 512, uint32_t fileCount = 2, uint32_t fileSize = 2097152) {
        KivoOmLogHandle handle = 0;
        EXPECT_EQ(TryCreate(handle, lineSize, fileCount, fileSize), 0U);
        return handle;
    }

    static void Log(KivoOmLogHandle handle, uint32_t line, const std::string& text = "text") {
        KivoOmLogModuleLogRecord(1, handle, "unit", 1, line, "%s", text.c_str());
    }

    static std::string Path(const std::string& name = "contract.log") { return support::LogDirectory() / name; }

    /// The line numbers of this test's log lines.
    static std::vector<uint32_t> Numbers(const std::vector<std::string>& lines) {
        std::vector<uint32_t> numbers;
        for (const std::string& line : lines) {
            if (const auto parsed = support::Parse(line); parsed && parsed->line.unit == "unit") {
                numbers.push_back(parsed->line.line);
            }
        }
        return numbers;
    }
    static std::vector<uint32_t> NumbersIn(const std::string& name) { return Numbers(support::FileLines(Path(name))); }

    static size_t FileCount() {
        const fs::directory_iterator files(support::LogDirectory());
        return static_cast<size_t>(std::distance(begin(files), end(files)));
    }
};

}  // namespace

TEST_F(LogFileTest, DirectoryIsCreatedWhenItIsMissing) {
    EXPECT_FALSE(fs::exists(support::LogDirectory()));
    Create();
    EXPECT_TRUE(fs::is_regular_file(Path()));
}

TEST_F(LogFileTest, EveryLineIsOnDiskAtOnce) {
    const KivoOmLogHandle handle = Create();
    for (uint32_t line = 1; line <= 3; ++line) {
        Log(handle, line);
        EXPECT_EQ(NumbersIn("contract.log").size(), line);
    }
}

TEST_F(LogFileTest, KeepsTheStatedNumberOfFilesOfTheStatedSize) {
    const KivoOmLogHandle handle = Create(512, 3, 1000);
    for (uint32_t line = 1; line <= 100; ++line) {
        Log(handle, line, std::string(150, 'r'));
    }
    EXPECT_EQ(FileCount(), 3U);
    std::vector<uint32_t> kept;
    for (const char* name : {"contract.2.log", "contract.1.log", "contract.log"}) {
        EXPECT_LE(fs::file_size(Path(name)), 1000U) << name;
        const std::vector<uint32_t> numbers = NumbersIn(name);
        EXPECT_EQ(numbers.size(), support::FileLines(Path(name)).size()) << name;
        kept.insert(kept.end(), numbers.begin(), numbers.end());
    }
    ASSERT_GT(kept.size(), 8U);
    for (size_t i = 0; i < kept.size(); ++i) {
        EXPECT_EQ(kept[i], 100 - kept.size() + 1 + i);  // the last ones, none missing
    }
}

TEST_F(LogFileTest, OneFileStartsAnewWhenItIsFull) {
    const KivoOmLogHandle handle = Create(512, 1, 1000);
    for (uint32_t line = 1; line <= 100; ++line) {
        Log(handle, line, std::string(150, 'r'));
        EXPECT_LE(fs::file_size(Path()), 1000U);
    }
    EXPECT_EQ(FileCount(), 1U);
    EXPECT_EQ(NumbersIn("contract.log").back(), 100U);
}

TEST_F(LogFileTest, NoLineIsLargerThanAFile) {
    const KivoOmLogHandle handle = Create(5000, 2, 300);
    Log(handle, 1, std::string(4000, 'r'));
    Log(handle, 2, std::string(4000, 'r'));
    EXPECT_EQ(fs::file_size(Path()), 300U);
    EXPECT_EQ(fs::file_size(Path("contract.1.log")), 300U);
}

TEST_F(LogFileTest, ReopeningContinuesTheFile) {
    Log(Create(), 1);
    ASSERT_EQ(KivoOmLogClientUnInit(), 0U);
    Init();
    Log(Create(), 2);
    EXPECT_EQ(NumbersIn("contract.log"), (std::vector<uint32_t>{1, 2}));
}

TEST_F(LogFileTest, ReopeningFollowsAMovedFile) {
    Log(Create(), 1);
    fs::rename(Path(), Path("moved"));
    ASSERT_EQ(KivoOmLogClientUnInit(), 0U);
    Init();
    Log(Create(), 2);
    EXPECT_EQ(NumbersIn("contract.log"), std::vector<uint32_t>{2});
}

TEST_F(LogFileTest, LineThatACrashLeftUnfinishedIsEnded) {
    fs::create_directories(support::LogDirectory());
    std::ofstream(Path()) << "2024-01-01 00:00:00.000 error unfin";
    Log(Create(), 1);
    const std::vector<std::string> lines = support::FileLines(Path());
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], "2024-01-01 00:00:00.000 error unfin");
    EXPECT_EQ(Numbers(lines), std::vector<uint32_t>{1});
}

TEST_F(LogFileTest, ProgramsThatAreStartedDoNotInheritTheFile) {
    Log(Create(512, 2, 300), 1, std::string(200, 'r'));
    Log(Create(), 2, std::string(200, 'r'));  // after a rotation as well
    ASSERT_TRUE(fs::exists(Path("contract.1.log")));
    EXPECT_NE(std::system(("ls -l /proc/self/fd | grep -q " + Path()).c_str()), 0);
}

TEST_F(LogFileTest, ClosedAndZeroHandlesWriteToStandardError) {
    const KivoOmLogHandle closed = Create();
    support::StandardError error;
    Log(0, 1, "zero\nhandle");
    ASSERT_EQ(KivoOmLogClientUnInit(), 0U);
    Log(closed, 2, std::string(3000, 'l'));
    const std::vector<std::string> lines = error.Lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(support::Parse(lines[0])->line, (support::LogLine{1, "unit", 1, 1, "zero\\nhandle"}));
    EXPECT_EQ(support::Parse(lines[0])->client, "suite");
    EXPECT_EQ(support::Parse(lines[1])->line, (support::LogLine{1, "unit", 1, 2, std::string(3000, 'l')}));
    EXPECT_EQ(support::Parse(lines[1])->client, "-");
    EXPECT_EQ(fs::file_size(Path()), 0U);
}

TEST_F(LogFileTest, CreationTellsWhyTheFileCannotBeWritten) {
    KivoOmLogHandle handle = 0;
    std::ofstream(support::LogDirectory().parent_path() / "plain") << "no directory";
    setenv("KIVO_LOG_DIR", (support::LogDirectory().parent_path() / "plain/logs").c_str(), 1);
    EXPECT_EQ(TryCreate(handle), static_cast<uint32_t>(ENOTDIR));
    setenv("KIVO_LOG_DIR", support::LogDirectory().c_str(), 1);
    fs::create_directories(Path());
    EXPECT_EQ(TryCreate(handle), static_cast<uint32_t>(EISDIR));
    EXPECT_EQ(handle, 0U);
    fs::remove(Path());
    EXPECT_EQ(TryCreate(handle), 0U);
}

TEST_F(LogFileTest, PipesAndDevicesAreRefusedWithoutBlocking) {
    KivoOmLogHandle handle = 0;
    fs::create_directories(support::LogDirectory());
    ASSERT_EQ(mkfifo(Path().c_str(), 0600), 0);
    EXPECT_EQ(TryCreate(handle), static_cast<uint32_t>(EINVAL));
    fs::remove(Path());
    fs::create_symlink("/dev/null", Path());
    EXPECT_EQ(TryCreate(handle), static_cast<uint32_t>(EINVAL));
}

TEST_F(LogFileTest, LinesOfAFileThatCannotBeWrittenGoToStandardErrorUntilItCan) {
    const KivoOmLogHandle handle = Create();
    Log(handle, 1);
    support::StandardError error;
    {
        const support::FileSizeLimit disk(fs::file_size(Path()) + 10);  // room for a part of a line
        Log(handle, 2);
        Log(handle, 3);
    }
    Log(handle, 4);
    EXPECT_EQ(Numbers(support::FileLines(Path())), (std::vector<uint32_t>{1, 4}));
    const std::vector<std::string> lines = error.Lines();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_NE(lines[0].find(" om_log_client/-:"), std::string::npos);
    EXPECT_NE(lines[0].find("cannot write " + Path() + ": "), std::string::npos);
    EXPECT_EQ(support::Parse(lines[1])->line, (support::LogLine{1, "unit", 1, 2, "text"}));
    EXPECT_EQ(support::Parse(lines[2])->line, (support::LogLine{1, "unit", 1, 3, "text"}));
}

TEST_F(LogFileTest, FailedRotationLosesNoLine) {
    const KivoOmLogHandle handle = Create(512, 2, 300);
    Log(handle, 1, std::string(200, 'r'));
    fs::rename(support::LogDirectory(), support::LogDirectory().string() + ".moved");
    std::ofstream(support::LogDirectory()) << "a file where the directory was";
    support::StandardError error;
    Log(handle, 2, std::string(200, 'r'));
    Log(handle, 3, "short");
    fs::remove(support::LogDirectory());
    Log(handle, 4);
    EXPECT_EQ(Numbers(error.Lines()), (std::vector<uint32_t>{2, 3}));
    EXPECT_EQ(NumbersIn("contract.log"), std::vector<uint32_t>{4});
}

TEST_F(LogFileTest, ReinitialisationWhileOthersLogLosesNoLine) {
    constexpr uint32_t kLines = 300;
    std::atomic<KivoOmLogHandle> handle{Create(512, 1000, 2097152)};
    std::atomic<int> ended{0};
    support::StandardError error;
    for (uint32_t thread = 0; thread < 3; ++thread) {
        support::StartThread([&, thread] {
            for (uint32_t line = 0; line < kLines; ++line) {
                Log(handle, thread * kLines + line);
            }
            ++ended;
        });
    }
    while (ended < 3) {
        EXPECT_EQ(KivoOmLogClientUnInit(), 0U);
        Init();
        handle = Create(512, 1000, 2097152);
    }
    std::vector<uint32_t> all = NumbersIn("contract.log");
    const std::vector<uint32_t> outside = Numbers(error.Lines());
    all.insert(all.end(), outside.begin(), outside.end());
    std::sort(all.begin(), all.end());
    ASSERT_EQ(all.size(), 900U);
    for (uint32_t i = 0; i < 900; ++i) {
        EXPECT_EQ(all[i], i);
    }
}

// However many allocations in a row find no memory, and whichever is the first: what cannot be logged is lost, and
// nothing is thrown.
TEST_F(LogFileTest, AShortageOfMemoryLosesLinesAndNothingElse) {
    setenv("KIVO_LOG_MANAGER_UNITS", "unit", 1);  // all roads of a line
    const KivoOmLogHandle handle = Create();
    const std::string text(600, 'r');  // longer than what is formatted without memory
    for (const int inARow : {1, 2, 5, 1000}) {
        for (int before = 0; before < 20; ++before) {
            support::StandardError error;
            support::FailAllocations(inARow, before);
            Log(handle, 1, text);
            KivoOmLogGeneralLogRecord(1, handle, "unit", 2, "%s", text.c_str());
            support::FailAllocations(0);
            Log(handle, 3, "the next one");
            const auto lines = error.Lines();
            const auto has = [&](const char* line) {
                return std::find(lines.begin(), lines.end(), line) != lines.end();
            };
            EXPECT_TRUE(before > 0 || has("om_log_client: no memory, a line is lost")) << inARow;
            EXPECT_EQ(Numbers(lines).back(), 3U) << inARow << " after " << before;
            EXPECT_EQ(NumbersIn("contract.log").back(), 3U) << inARow << " after " << before;
        }
    }
    unsetenv("KIVO_LOG_MANAGER_UNITS");
}

TEST_F(LogFileTest, WithoutMemoryThereIsNoNewLog) {
    for (int before = 0; before < 20; ++before) {
        KivoOmLogHandle handle = 0;
        support::FailAllocations(1000, before);
        const uint32_t result = TryCreate(handle);
        support::FailAllocations(0);
        EXPECT_TRUE(result == 0 || result == ENOMEM) << result << " after " << before;
        Log(Create(), 1);
    }
    EXPECT_EQ(NumbersIn("contract.log"), std::vector<uint32_t>(20, 1));
}

// Each allocation fails once, of a line that finds the file full. Then the line is lost or on standard error, and the
// next one is where it belongs.
TEST_F(LogFileTest, WithoutMemoryForARotationTheNextLineIsWritten) {
    const std::string text(200, 'r');
    const auto descriptors = support::Descriptors(getpid());
    bool happened = true;
    int before = 0;
    for (; happened && before < 200; ++before) {
        const KivoOmLogHandle handle = Create(512, 2, 300);
        Log(handle, 1, text);
        std::vector<uint32_t> outside;
        {
            support::StandardError error;
            support::FailAllocations(1, before);
            Log(handle, 2, text);
            happened = support::FailuresToCome() == 0;
            support::FailAllocations(0);
            Log(handle, 3, text);
            outside = Numbers(error.Lines());
        }
        EXPECT_EQ(NumbersIn("contract.log"), std::vector<uint32_t>{3}) << before;
        EXPECT_EQ(FileCount(), 2U) << before;
        EXPECT_TRUE(outside.empty() || outside == std::vector<uint32_t>{2}) << before;
        EXPECT_EQ(NumbersIn("contract.1.log"), std::vector<uint32_t>{happened ? 1U : 2U}) << before;
        ASSERT_EQ(KivoOmLogClientUnInit(), 0U);
        EXPECT_EQ(support::Descriptors(getpid()), descriptors) << before;
        fs::remove_all(support::LogDirectory());
        Init();
    }
    EXPECT_FALSE(happened);
    EXPECT_GE(before, 5);
}

// As the server does it when the operations log asks for it. A reopening that fails may be tried again, and what is
// logged meanwhile is on standard error.
TEST_F(LogFileTest, WithoutMemoryForAReopeningTheNextOneWorks) {
    const auto reopen = [](KivoOmLogHandle& handle) {
        const uint32_t result = KivoOmLogClientInit("suite_with_a_name_of_31_bytes_xx", 31);
        return result == 0 ? TryCreate(handle) : result;
    };
    bool happened = true;
    int before = 0;
    std::vector<uint32_t> written;
    for (; happened && before < 200; ++before) {
        KivoOmLogHandle handle = Create();
        Log(handle, 1);
        written.push_back(1);
        support::StandardError error;
        support::FailAllocations(1, before);
        EXPECT_EQ(KivoOmLogClientUnInit(), 0U);
        const uint32_t result = reopen(handle);
        happened = support::FailuresToCome() == 0;
        support::FailAllocations(0);
        EXPECT_TRUE(result == 0 || result == ENOMEM) << result << " after " << before;
        Log(handle, 2);
        if (result == 0) {
            written.push_back(2);
        }
        EXPECT_EQ(Numbers(error.Lines()), result == 0 ? std::vector<uint32_t>{} : std::vector<uint32_t>{2}) << before;
        EXPECT_EQ(reopen(handle), 0U) << before;
        Log(handle, 3);
        written.push_back(3);
        EXPECT_EQ(NumbersIn("contract.log"), written) << before;
    }
    EXPECT_FALSE(happened);
    EXPECT_GE(before, 5);
}

TEST_F(LogFileTest, ErrorsOfNamedUnitsGoToStandardErrorAsWell) {
    setenv("KIVO_LOG_MANAGER_UNITS", "first,unit", 1);
    const KivoOmLogHandle log = Create();
    support::StandardError error;
    Log(log, 1);
    KivoOmLogModuleLogRecord(3, log, "unit", 1, 2, "information");
    KivoOmLogModuleLogRecord(1, log, "uni", 1, 3, "another unit's");
    KivoOmLogModuleLogRecord(1, log, "first,unit", 1, 4, "a part of the list is no unit");
    const auto lines = error.Lines();
    unsetenv("KIVO_LOG_MANAGER_UNITS");
    Log(log, 5);
    EXPECT_EQ(Numbers(lines), std::vector<uint32_t>{1});
    EXPECT_EQ(NumbersIn("contract.log"), (std::vector<uint32_t>{1, 2, 5}));  // of this unit
}

TEST_F(LogFileTest, TheJournalIsToldTheLevelAndATerminalIsNot) {
    setenv("KIVO_LOG_MANAGER_UNITS", "unit", 1);
    const KivoOmLogHandle log = Create();
    support::StandardError error;
    struct stat status {};
    ASSERT_EQ(fstat(STDERR_FILENO, &status), 0);
    const std::string here = std::to_string(status.st_dev) + ":";
    setenv("JOURNAL_STREAM", (here + std::to_string(status.st_ino)).c_str(), 1);
    Log(log, 1, "to the journal");
    setenv("JOURNAL_STREAM", (here + std::to_string(status.st_ino + 1)).c_str(), 1);
    Log(log, 2, "to a terminal, with a journal elsewhere");
    unsetenv("JOURNAL_STREAM");
    unsetenv("KIVO_LOG_MANAGER_UNITS");
    const auto lines = error.Lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].substr(0, 3), "<3>");
    EXPECT_EQ(Numbers({lines[0].substr(3), lines[1]}), (std::vector<uint32_t>{1, 2}));
}
