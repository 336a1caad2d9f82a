// Walking the entries with the server's own copy functions, each in its process.
#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fstream>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "collect/driver.h"
#include "support/eventually.h"
#include "support/forked.h"
#include "support/process_state.h"
#include "support/temp_folder.h"

using namespace ominspect;
using namespace ominspect::collect;
using support::Contents;
using support::WriteFile;
using Lines = std::vector<std::string>;

namespace {

bool g_noProcesses = false;

}  // namespace

// In the place of the C library's.
extern "C" pid_t fork() noexcept {
    static const auto real = reinterpret_cast<pid_t (*)()>(dlsym(RTLD_NEXT, "fork"));
    if (g_noProcesses) {
        errno = EAGAIN;
        return -1;
    }
    return real();
}

namespace {

pid_t ChildOf(pid_t parent) {
    std::ifstream children("/proc/" + std::to_string(parent) + "/task/" + std::to_string(parent) + "/children");
    pid_t child = -1;
    return children >> child ? child : -1;
}

class DriverTest : public testing::Test {
protected:
    Entry Folder(const std::string& name, std::uint32_t limit = 5) const {
        return {work_ / name, work_ / ("area/" + name), limit, InspectCopyDirFile};
    }
    Entry File(const std::string& name) const { return {work_ / name, work_ / ("area/" + name), 5, InspectCopyFile}; }

    // Empty when it was given up.
    std::vector<EntryReport> Run(const std::vector<Entry>& entries) {
        EndSignals signals;
        rules_.copy.area = work_ / "area";
        auto reports = Drive(entries, rules_, signals, {onProgress_, [](std::size_t, const EntryReport&) {}});
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
    DriveRules rules_;
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

TEST_F(DriverTest, AnAreaThatItMakesIsForItsGroupTooAndOneThatIsThereStaysAsItIs) {
    using std::filesystem::perms;
    WriteFile("single", "x");
    (void)Run({File("single")});
    EXPECT_EQ(std::filesystem::status("area").permissions(), perms{0770});
    std::filesystem::permissions("area", perms{0700});
    (void)Run({File("single")});
    EXPECT_EQ(std::filesystem::status("area").permissions(), perms{0700});
}

// No descriptor is left for it.
TEST_F(DriverTest, ACopyThatCannotBeStartedIsTold) {
    WriteFile("single", "x");
    g_noProcesses = true;
    const auto reports = Run({File("single")});
    g_noProcesses = false;
    EXPECT_EQ(Outcomes(reports), Lines{"failed: its process cannot be started: Resource temporarily unavailable"});
}

// A function of its own may find nothing to do.
TEST_F(DriverTest, OnlyAFileThatIsNamedMustBeCopied) {
    WriteFile("logs/a", "x");
    const Entry idle{work_ / "logs", work_ / "area/logs", 5, [](const char*, const char*, CollectConfig&) {}};
    EXPECT_EQ(Outcomes(Run({idle})), Lines{"complete: "});
}

// The copy functions pass over it without a word.
TEST_F(DriverTest, AFolderThatCannotBeReadIsTold) {
    WriteFile("logs/open/a", "x");
    WriteFile("logs/closed/b", "x");
    std::filesystem::permissions("logs/closed", std::filesystem::perms::none);
    const Lines failures = support::InForkedChild([this] {
        support::BecomeNobodyWith(work_.Path());
        (void)prctl(PR_SET_DUMPABLE, 1);  // else /proc/self is closed to who gave up rights
        return Failures(Run({Folder("logs")})[0]);
    });
    std::filesystem::permissions("logs/closed", std::filesystem::perms::owner_all);
    EXPECT_EQ(failures, Lines{"logs/closed: Permission denied"});
    EXPECT_EQ(Contents("area/logs/open/a"), "x");
}

TEST_F(DriverTest, AMissingSourceIsReportedAndTheOthersGoOn) {
    WriteFile("logs/a", "x");
    const auto reports = Run({Folder("nowhere"), File("nothing"), Folder("logs")});
    EXPECT_EQ(Outcomes(reports),
              (Lines{"missing: the source does not exist", "missing: the source does not exist", "complete: "}));
    EXPECT_EQ(reports[0].messages.list, (Lines{"open dir fail!"}));
    EXPECT_EQ(Failures(reports[1]), (Lines{"nothing: No such file or directory"}));
}

TEST_F(DriverTest, AnAreaThatIsNoFolderIsTold) {
    WriteFile("area", "x");
    WriteFile("logs/a", "x");
    WriteFile("single", "x");
    const auto reports = Run({Folder("logs"), File("single")});
    EXPECT_EQ(Failures(reports[1]), Lines{"single: Not a directory"});
    EXPECT_EQ(reports[0].outcome, Outcome::kIncomplete);
    EXPECT_EQ(Contents("area"), "x");
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

// In which order a folder is listed is for the file system to say, but the long path is not the last one in each.
TEST_F(DriverTest, NoticesWhatComesAfterAPathThatIsTooLong) {
    const std::string deep = "logs/" + std::string(100, 'd') + '/' + std::string(90, 'e');
    for (int folder = 0; folder < 10; ++folder) {
        const std::string number = std::to_string(folder);
        for (const std::string& name :
             {"a" + number, "b" + number, std::string(80, 'g') + number, "y" + number, "z" + number}) {
            std::filesystem::create_directories(deep + '/' + number);
            std::ofstream(deep + '/' + number + '/' + name) << "x";
        }
    }
    const auto reports = Run({Folder("logs")});
    ASSERT_EQ(reports.size(), 1U);
    const Lines failures = Failures(reports[0]);
    const auto endWith = [&](const std::string& reason) {
        return std::ranges::count_if(failures, [&](const std::string& line) { return line.ends_with(reason); });
    };
    EXPECT_EQ(endWith(": the path is longer than 255 bytes, which ends the copy of its folder"), 10);
    EXPECT_GT(endWith(": comes after a path longer than 255 bytes"), 0);
    EXPECT_EQ(endWith(": not copied"), 0);
}

TEST_F(DriverTest, NoticesWhatCameAfterTheCopy) {
    WriteFile("logs/a", "x");
    onProgress_ = [](const Progress&) {
        const pid_t child = ChildOf(getpid());
        EXPECT_TRUE(support::Eventually([child] { return !support::IsAlive(child); }));
        WriteFile("logs/late", "x");
    };
    rules_.copy.package = "/elsewhere/late";  // only its name is the same
    EXPECT_EQ(Failures(Run({Folder("logs")})[0]), Lines{"logs/late: not copied"});
}

timespec TimeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mtim;
}

TEST_F(DriverTest, ACopyHasItsSourcesTimesWhateverItsName) {
    const Lines names{"plain", "a b", "it's", "(", "back\\slash", "a;touch pwned", "a\nb", "x", "x pwned"};
    const timespec time{1000000000, 123456789};
    const std::array<timespec, 2> times{time, time};
    for (const std::string& name : names) {
        WriteFile("logs/" + name, "x");
        ASSERT_EQ(utimensat(AT_FDCWD, ("logs/" + name).c_str(), times.data(), 0), 0);
    }
    const auto reports = Run({Folder("logs")});
    EXPECT_EQ(Outcomes(reports), (Lines{"complete: "}));
    EXPECT_EQ(reports[0].messages.list, Lines{});
    for (const std::string& name : names) {
        EXPECT_EQ(TimeOf("area/logs/" + name).tv_sec, time.tv_sec) << name;
        EXPECT_EQ(TimeOf("area/logs/" + name).tv_nsec, time.tv_nsec) << name;
    }
    EXPECT_FALSE(std::filesystem::exists("pwned"));
}

TEST_F(DriverTest, AnOldCopyIsRemovedAndItsLinksAreNotFollowed) {
    WriteFile("logs/sub/keep", "x");
    WriteFile("outside/keep", "x");
    WriteFile("area/logs/old", "x");
    std::filesystem::create_symlink(work_ / "logs/sub", "area/logs/source");
    std::filesystem::create_symlink(work_ / "outside", "area/logs/outside");
    std::filesystem::create_symlink("nowhere", "area/logs/dangling");
    EXPECT_EQ(Outcomes(Run({Folder("logs")})), (Lines{"complete: "}));
    EXPECT_EQ(Contents("logs/sub/keep"), "x");
    EXPECT_EQ(Contents("outside/keep"), "x");
    EXPECT_EQ(Contents("area/logs/sub/keep"), "x");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator("area/logs"), {}), 1);
}

// Somebody who may write in the area puts links into the copy while it grows: the copy function finds them there.
TEST_F(DriverTest, LinksThatComeIntoTheCopyMeanwhileLeadNowhere) {
    WriteFile("logs/sub/a", "x");
    WriteFile("logs/other", "x");
    WriteFile("outside/a", "old");
    const Entry entry{
        work_ / "logs", work_ / "area/logs", 5, [](const char* src, const char* dst, CollectConfig& config) {
            std::filesystem::create_directories(dst);
            std::filesystem::create_symlink("../../outside", std::string(dst) + "/sub");
            std::filesystem::create_symlink("../../outside/a", std::string(dst) + "/other");
            for (const char* name : {"/sub", "/other"}) {
                InspectDealCopy((std::string(src) + name).c_str(), (std::string(dst) + name).c_str(), config);
            }
        }};
    (void)Run({entry});
    EXPECT_EQ(Contents("outside/a"), "old");
    EXPECT_EQ(Contents("area/logs/sub/a"), "x");
    EXPECT_FALSE(std::filesystem::is_symlink("area/logs/sub"));
    EXPECT_TRUE(std::filesystem::is_symlink("area/logs/other"));
}

TEST_F(DriverTest, AFolderThatIsConfiguredAsAFileIsReportedAsWhatItIs) {
    WriteFile("logs/a", "x");
    WriteFile("area/logs/old", "x");
    EXPECT_EQ(Outcomes(Run({File("logs")})), (Lines{"complete: "}));
    EXPECT_FALSE(std::filesystem::exists("area/logs/old"));
    Entry entry = File("logs");
    entry.limit = 0;
    const auto reports = Run({entry});
    EXPECT_EQ(Outcomes(reports), (Lines{"cut short: the time limit of 0 s ended it"}));
    EXPECT_EQ(reports[0].limit, std::chrono::seconds(0));
}

TEST_F(DriverTest, WhatIsExcludedIsNotMissed) {
    for (const char* name : {"a.log", "b.gz", "sub/c.gz", "cache/d.log", "sub/cache2/e"}) {
        WriteFile(std::string("logs/") + name, "x");
    }
    rules_.copy.exclude = {"*.gz", "cache", "sub/cache2"};
    const auto reports = Run({Folder("logs")});
    EXPECT_EQ(Outcomes(reports), (Lines{"complete: "}));
    EXPECT_EQ(reports[0].files, 1U);
    EXPECT_EQ(Contents("area/logs/a.log"), "x");
    EXPECT_FALSE(std::filesystem::exists("area/logs/cache"));
    EXPECT_TRUE(std::filesystem::is_empty("area/logs/sub"));
}

TEST_F(DriverTest, TheSizeLimitHoldsForAllEntriesTogether) {
    WriteFile("one/a", "123");
    WriteFile("two/b", "123");
    WriteFile("three", "12");
    rules_.copy.bytesLeft = 5;
    const auto reports = Run({Folder("one"), Folder("two"), File("three")});
    EXPECT_EQ(Outcomes(reports), (Lines{"complete: ", "incomplete: 1 path not copied", "complete: "}));
    EXPECT_EQ(Failures(reports[1]), (Lines{"two/b: beyond the size limit"}));
}

TEST_F(DriverTest, ADryRunCountsAndChangesNothing) {
    WriteFile("logs/a", "12345");
    WriteFile("logs/sub/b", "678");
    WriteFile("single", "9");
    std::filesystem::create_symlink("../single", "logs/outside");
    WriteFile("area/logs/sub/old", "old");
    rules_.copy.dryRun = true;
    const auto reports = Run({Folder("logs"), File("single")});
    EXPECT_EQ(Outcomes(reports), (Lines{"incomplete: 1 path not copied", "complete: "}));
    EXPECT_EQ(Failures(reports[0]), (Lines{"logs/outside: a link that leads out of the source"}));
    EXPECT_EQ(reports[0].files, 2U);
    EXPECT_EQ(reports[0].bytes, 8U);
    EXPECT_EQ(reports[1].bytes, 1U);
    EXPECT_EQ(Contents("area/logs/sub/old"), "old");
    EXPECT_FALSE(std::filesystem::exists("area/logs/a"));
    EXPECT_FALSE(std::filesystem::exists("area/single"));
}

TEST_F(DriverTest, WithNoTimeLeftForAllTheOthersAreNotStarted) {
    WriteFile("logs/a", "x");
    rules_.totalLimit = std::chrono::seconds(0);
    EXPECT_EQ(Outcomes(Run({Folder("logs")})), (Lines{"not started: the time for all entries was over"}));
}

TEST_F(DriverTest, AnInterruptEndsTheEntryAndLeavesTheOthersOut) {
    WriteFile("logs/a", "x");
    const Entry endless{work_ / "logs", work_ / "area/logs", 60,
                        [](const char* src, const char* dst, CollectConfig& config) {
                            for (int number = 0; config.running; ++number) {
                                const std::string name = '/' + std::to_string(number % 100);
                                InspectCopyFile((std::string(src) + "/a").c_str(), (dst + name).c_str(), config);
                            }
                            InspectCopyDirFile(src, (std::string(dst) + "/rest").c_str(), config);
                        }};
    bool raised = false;
    std::chrono::milliseconds left(-1);
    onProgress_ = [&](const Progress& progress) {
        if (raised) {
            left = progress.left;
        } else if (progress.index == 1 && progress.files > 0) {
            raised = kill(getpid(), SIGINT) == 0;
        }
    };
    const Entry atOnce{work_ / "logs", work_ / "area/at-once", 0, InspectCopyDirFile};
    const auto reports = Run({atOnce, endless, Folder("logs", 60)});
    EXPECT_EQ(Outcomes(reports), (Lines{"cut short: the time limit of 0 s ended it", "interrupted: interrupted",
                                        "not started: interrupted before"}));
    EXPECT_EQ(left.count(), 0) << "its time is over";
    EXPECT_GT(reports[1].files, 0U);
    EXPECT_EQ(Contents("area/logs/0"), "x");
    EXPECT_TRUE(std::filesystem::is_empty("area/logs/rest"));
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
