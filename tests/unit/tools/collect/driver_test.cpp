// Walking the entries with the server's own copy functions, each in its process.
#include <algorithm>
#include <csignal>
#include <fstream>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "collect/driver.h"
#include "support/process_state.h"
#include "support/temp_folder.h"

using namespace ominspect;
using namespace ominspect::collect;
using support::Contents;
using support::WriteFile;
using Lines = std::vector<std::string>;

namespace {

class DriverTest : public testing::Test {
protected:
    Entry Folder(const std::string& name, std::uint32_t limit = 5) const {
        return {work_ / name, work_ / ("area/" + name), limit, InspectCopyDirFile};
    }
    Entry File(const std::string& name) const { return {work_ / name, work_ / ("area/" + name), 5, InspectCopyFile}; }

    // Empty when it was given up.
    std::vector<EntryReport> Run(const std::vector<Entry>& entries) {
        EndSignals signals;
        auto reports = Drive(entries, work_ / "area", signals, {onProgress_, [](std::size_t, const EntryReport&) {}});
        return reports ? *reports : std::vector<EntryReport>{};
    }

    // "outcome: remark"
    static Lines Outcomes(const std::vector<EntryReport>& reports) {
        Lines lines;
        for (const EntryReport& report : reports) {
            lines.push_back(std::string(OutcomeWord(report.outcome)) + ": " + report.remark);
        }
        return lines;
    }

    // "path below the work folder: reason", sorted
    Lines Failures(const EntryReport& report) const {
        Lines lines;
        for (const Failure& failure : report.failures.list) {
            lines.push_back(failure.path.substr(work_.Path().string().size() + 1) + ": " + failure.reason);
        }
        std::sort(lines.begin(), lines.end());
        return lines;
    }

    const support::WorkingFolder work_;
    std::function<void(const Progress&)> onProgress_ = [](const Progress&) {};
};

TEST_F(DriverTest, CountsWhatItCopies) {
    WriteFile("logs/a", "12345");
    WriteFile("logs/sub/b", "678");
    WriteFile("single", "9");
    const auto reports = Run({Folder("logs"), File("single")});
    EXPECT_EQ(Outcomes(reports), (Lines{"complete: ", "complete: "}));
    EXPECT_EQ(reports[0].files, 2U);
    EXPECT_EQ(reports[0].bytes, 8U);
    EXPECT_EQ(reports[1].files, 1U);
    EXPECT_EQ(reports[1].bytes, 1U);
    EXPECT_EQ(Contents("area/logs/sub/b"), "678");
    EXPECT_EQ(Contents("area/single"), "9");
}

TEST_F(DriverTest, AMissingSourceIsReportedAndTheOthersGoOn) {
    WriteFile("logs/a", "x");
    const auto reports = Run({Folder("nowhere"), File("nothing"), Folder("logs")});
    EXPECT_EQ(Outcomes(reports),
              (Lines{"missing: the source does not exist", "missing: the source does not exist", "complete: "}));
    EXPECT_EQ(reports[0].messages.list, (Lines{"open dir fail!"}));
    EXPECT_EQ(Failures(reports[1]), (Lines{"nothing: No such file or directory"}));
}

TEST_F(DriverTest, TheTimeLimitIsTold) {
    for (int i = 0; i < 2000; ++i) {
        WriteFile("logs/" + std::to_string(i), "x");
    }
    const auto reports = Run({Folder("logs", 0)});
    EXPECT_EQ(Outcomes(reports), (Lines{"cut short: the time limit of 0 s ended it"}));
    EXPECT_LT(reports[0].files, 2000U);
}

TEST_F(DriverTest, DestinationsOutsideTheAreaAreRefusedUntouched) {
    WriteFile("logs/a", "x");
    WriteFile("precious/file", "x");
    std::filesystem::create_directories("area/keep");
    std::filesystem::create_symlink(work_ / "precious", "area/link");
    const auto to = [&](const std::string& destination) {
        return Entry{work_ / "logs", destination, 5, InspectCopyDirFile};
    };
    const auto reports = Run({to(work_ / "precious"),
                              to(work_ / "area/../precious"),
                              to(work_ / "area"),
                              to(work_ / "area/link"),
                              to(work_ / "area/link/below"),
                              to("area/relative"),
                              to(""),
                              {"", work_ / "area/x", 5, InspectCopyFile}});
    for (const EntryReport& report : reports) {
        EXPECT_EQ(report.outcome, Outcome::kRefused) << report.entry.destination;
    }
    EXPECT_EQ(reports.size(), 8U);
    EXPECT_EQ(reports[0].remark, "the destination " + work_ / "precious" + " is outside the area " + work_ / "area");
    EXPECT_EQ(Contents("precious/file"), "x");
    EXPECT_TRUE(std::filesystem::exists("area/keep"));
}

TEST_F(DriverTest, SourcesAndDestinationsThatOverlapAreRefused) {
    WriteFile("area/logs/a", "x");
    const Entry itself{work_ / "area/logs", work_ / "area/logs", 5, InspectCopyDirFile};
    const Entry inside{work_ / "area", work_ / "area/copy", 5, InspectCopyDirFile};
    EXPECT_EQ(Outcomes(Run({itself, inside})),
              (Lines{"refused: source and destination overlap", "refused: source and destination overlap"}));
    EXPECT_EQ(Contents("area/logs/a"), "x");
}

TEST_F(DriverTest, AnEntryThatWouldReplaceAnEarlierOneIsRefused) {
    WriteFile("one/a", "x");
    WriteFile("two/b", "x");
    const auto reports = Run({{work_ / "one", work_ / "area/both/one", 5, InspectCopyDirFile},
                              {work_ / "two", work_ / "area/both", 5, InspectCopyDirFile},
                              {work_ / "two", work_ / "area/both/two", 5, InspectCopyDirFile}});
    EXPECT_EQ(Outcomes(reports),
              (Lines{"complete: ", "refused: it would replace the copy of an earlier entry", "complete: "}));
    EXPECT_EQ(Contents("area/both/one/a"), "x");
}

TEST_F(DriverTest, NoLinkIsFollowedOutOfTheSourceOrInCircles) {
    WriteFile("outside/secret", "secret");
    WriteFile("logs/real/a", "x");
    std::filesystem::create_symlink("real/a", "logs/inside");
    std::filesystem::create_symlink("../outside/secret", "logs/file");
    std::filesystem::create_symlink(work_ / "outside", "logs/folder");
    std::filesystem::create_symlink("..", "logs/real/loop");
    const auto reports = Run({Folder("logs")});
    EXPECT_EQ(Outcomes(reports), (Lines{"incomplete: 3 paths not copied"}));
    EXPECT_EQ(Failures(reports[0]), (Lines{"logs/file: a link that leads out of the source",
                                           "logs/folder: a link that leads out of the source",
                                           "logs/real/loop: a link to a folder that it lies in"}));
    EXPECT_EQ(Contents("area/logs/inside"), "x");
    EXPECT_FALSE(std::filesystem::exists("area/logs/file"));
    EXPECT_TRUE(std::filesystem::is_empty("area/logs/folder"));
}

TEST_F(DriverTest, ASourceMayItselfBeALink) {
    WriteFile("real/a", "x");
    std::filesystem::create_symlink("real", "logs");
    EXPECT_EQ(Outcomes(Run({Folder("logs")})), (Lines{"complete: "}));
    EXPECT_EQ(Contents("area/logs/a"), "x");
}

TEST_F(DriverTest, SaysWhatIsNoFile) {
    WriteFile("logs/a", "x");
    ASSERT_EQ(mkfifo("logs/pipe", 0600), 0);
    const auto reports = Run({Folder("logs")});
    EXPECT_EQ(Outcomes(reports), (Lines{"incomplete: 1 path not copied"}));
    EXPECT_EQ(Failures(reports[0]), (Lines{"logs/pipe: not a regular file"}));
    EXPECT_EQ(reports[0].files, 1U);
}

TEST_F(DriverTest, NoticesPathsThatArePassedOverWithoutAWord) {
    const std::string deep = "logs/" + std::string(100, 'd') + '/' + std::string(90, 'e');
    WriteFile(deep + "/f", "x");
    std::ofstream(deep + '/' + std::string(80, 'g')) << "x";
    const auto reports = Run({Folder("logs")});
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].outcome, Outcome::kIncomplete);
    const std::string reason = ": the path is longer than 255 bytes, which ends the copy of its folder";
    const Lines failures = Failures(reports[0]);
    EXPECT_NE(std::find(failures.begin(), failures.end(), deep + '/' + std::string(80, 'g') + reason), failures.end());
}

TEST_F(DriverTest, TakesInWhatTheStartedToolsSay) {
    WriteFile("logs/a b", "x");
    const auto reports = Run({Folder("logs")});
    EXPECT_EQ(Outcomes(reports), (Lines{"complete: "}));
    EXPECT_EQ(Contents("area/logs/a b"), "x");
    const auto& messages = reports[0].messages.list;
    EXPECT_TRUE(std::any_of(messages.begin(), messages.end(),
                            [](const std::string& message) { return message.starts_with("touch: "); }));
    EXPECT_NE(std::find(messages.begin(), messages.end(), "change file [****logs/a b]->[****logs/a b] time fail"),
              messages.end());
}

TEST_F(DriverTest, AnInterruptEndsTheEntryAndLeavesTheOthersOut) {
    for (int i = 0; i < 2000; ++i) {
        WriteFile("logs/" + std::to_string(i), "x");
    }
    bool raised = false;
    onProgress_ = [&](const Progress& progress) {
        if (progress.files > 0 && !raised) {
            raised = kill(getpid(), SIGINT) == 0;
        }
    };
    const auto reports = Run({Folder("logs", 60), Folder("logs", 60)});
    EXPECT_EQ(Outcomes(reports), (Lines{"interrupted: interrupted", "not started: interrupted before"}));
    EXPECT_GT(reports[0].files, 0U);
    EXPECT_LT(reports[0].files, 2000U);
    // What is there is whole.
    for (const auto& file : std::filesystem::directory_iterator("area/logs")) {
        EXPECT_EQ(Contents(file.path()), "x");
    }
}

pid_t ChildOf(pid_t parent) {
    std::ifstream children("/proc/" + std::to_string(parent) + "/task/" + std::to_string(parent) + "/children");
    pid_t child = -1;
    return children >> child ? child : -1;
}

TEST_F(DriverTest, ASecondInterruptGivesUpACopyThatHangs) {
    const Entry hangs{work_ / "logs", work_ / "area/logs", 5, [](const char*, const char*, CollectConfig&) {
                          for (;;) {
                              (void)pause();
                          }
                      }};
    WriteFile("logs", "x");
    pid_t child = -1;
    onProgress_ = [&](const Progress&) {
        child = ChildOf(getpid());
        (void)kill(getpid(), SIGINT);
    };
    EXPECT_TRUE(Run({hangs}).empty());
    EXPECT_GT(child, 0);
    EXPECT_FALSE(support::IsAlive(child));
}

TEST_F(DriverTest, ACopyThatCrashesIsReportedAndTheOthersGoOn) {
    WriteFile("logs/a", "x");
    const Entry crashes{work_ / "logs", work_ / "area/crash", 5,
                        [](const char*, const char*, CollectConfig&) { (void)raise(SIGKILL); }};
    const auto reports = Run({crashes, Folder("logs")});
    EXPECT_EQ(Outcomes(reports), (Lines{"failed: its process was ended by Killed", "complete: "}));
}

}  // namespace
