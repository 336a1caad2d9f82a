// Walking the entries with the server's own copy functions, each in its process.
#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>

#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "collect/area.h"
#include "collect/driver.h"
#include "collect/entries.h"
#include "support/process_state.h"
#include "support/work_folder.h"

using namespace ominspect::collect;
using support::Contents;
using Lines = std::vector<std::string>;

namespace {

// Raised in the tests as Ctrl-C is by a user.
constexpr int kCtrlC = SIGUSR1;

class Driver : public support::InWorkFolder {
protected:
    void SetUp() override {
        InWorkFolder::SetUp();
        sigset_t set{};
        (void)sigemptyset(&set);
        (void)sigaddset(&set, kCtrlC);
        (void)sigprocmask(SIG_BLOCK, &set, nullptr);
        signals_ = signalfd(-1, &set, SFD_CLOEXEC);
        ASSERT_GE(signals_, 0);
    }

    void TearDown() override {
        (void)close(signals_);
        InWorkFolder::TearDown();
    }

    Entry Folder(const std::string& name, std::uint32_t limit = 5) const {
        return {In(name), In("area/" + name), limit, InspectCopyDirFile};
    }
    Entry File(const std::string& name) const { return {In(name), In("area/" + name), 5, InspectCopyFile}; }

    // Empty when it was given up.
    std::vector<EntryReport> Run(const std::vector<Entry>& entries) {
        Interrupts interrupts(signals_);
        auto reports = Drive(entries, In("area"), interrupts, {onProgress_, [](std::size_t, const EntryReport&) {}});
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
            lines.push_back(failure.path.substr(folder_.size() + 1) + ": " + failure.reason);
        }
        std::sort(lines.begin(), lines.end());
        return lines;
    }

    int signals_ = -1;
    std::function<void(const Progress&)> onProgress_ = [](const Progress&) {};
};

TEST_F(Driver, CountsWhatItCopies) {
    Write("logs/a", "12345");
    Write("logs/sub/b", "678");
    Write("single", "9");
    const auto reports = Run({Folder("logs"), File("single")});
    EXPECT_EQ(Outcomes(reports), (Lines{"complete: ", "complete: "}));
    EXPECT_EQ(reports[0].files, 2U);
    EXPECT_EQ(reports[0].bytes, 8U);
    EXPECT_EQ(reports[1].files, 1U);
    EXPECT_EQ(reports[1].bytes, 1U);
    EXPECT_EQ(Contents("area/logs/sub/b"), "678");
    EXPECT_EQ(Contents("area/single"), "9");
}

TEST_F(Driver, AMissingSourceIsReportedAndTheOthersGoOn) {
    Write("logs/a", "x");
    const auto reports = Run({Folder("nowhere"), File("nothing"), Folder("logs")});
    EXPECT_EQ(Outcomes(reports),
              (Lines{"missing: the source does not exist", "missing: the source does not exist", "complete: "}));
    EXPECT_EQ(reports[0].messages.list, (Lines{"open dir fail!"}));
    EXPECT_EQ(Failures(reports[1]), (Lines{"nothing: No such file or directory"}));
}

TEST_F(Driver, TheTimeLimitIsTold) {
    for (int i = 0; i < 2000; ++i) {
        Write("logs/" + std::to_string(i), "x");
    }
    const auto reports = Run({Folder("logs", 0)});
    EXPECT_EQ(Outcomes(reports), (Lines{"cut short: the time limit of 0 s ended it"}));
    EXPECT_LT(reports[0].files, 2000U);
}

TEST_F(Driver, DestinationsOutsideTheAreaAreRefusedUntouched) {
    Write("logs/a", "x");
    Write("precious/file", "x");
    std::filesystem::create_directories("area/keep");
    std::filesystem::create_symlink(In("precious"), "area/link");
    const auto to = [&](const std::string& destination) {
        return Entry{In("logs"), destination, 5, InspectCopyDirFile};
    };
    const auto reports = Run({to(In("precious")),
                              to(In("area/../precious")),
                              to(In("area")),
                              to(In("area/link")),
                              to(In("area/link/below")),
                              to("area/relative"),
                              to(""),
                              {"", In("area/x"), 5, InspectCopyFile}});
    for (const EntryReport& report : reports) {
        EXPECT_EQ(report.outcome, Outcome::kRefused) << report.entry.destination;
    }
    EXPECT_EQ(reports.size(), 8U);
    EXPECT_EQ(reports[0].remark, "the destination " + In("precious") + " is outside the area " + In("area"));
    EXPECT_EQ(Contents("precious/file"), "x");
    EXPECT_TRUE(std::filesystem::exists("area/keep"));
}

TEST_F(Driver, SourcesAndDestinationsThatOverlapAreRefused) {
    Write("area/logs/a", "x");
    const Entry itself{In("area/logs"), In("area/logs"), 5, InspectCopyDirFile};
    const Entry inside{In("area"), In("area/copy"), 5, InspectCopyDirFile};
    EXPECT_EQ(Outcomes(Run({itself, inside})),
              (Lines{"refused: source and destination overlap", "refused: source and destination overlap"}));
    EXPECT_EQ(Contents("area/logs/a"), "x");
}

TEST_F(Driver, AnEntryThatWouldReplaceAnEarlierOneIsRefused) {
    Write("one/a", "x");
    Write("two/b", "x");
    const auto reports = Run({{In("one"), In("area/both/one"), 5, InspectCopyDirFile},
                              {In("two"), In("area/both"), 5, InspectCopyDirFile},
                              {In("two"), In("area/both/two"), 5, InspectCopyDirFile}});
    EXPECT_EQ(Outcomes(reports),
              (Lines{"complete: ", "refused: it would replace the copy of an earlier entry", "complete: "}));
    EXPECT_EQ(Contents("area/both/one/a"), "x");
}

TEST_F(Driver, NoLinkIsFollowedOutOfTheSourceOrInCircles) {
    Write("outside/secret", "secret");
    Write("logs/real/a", "x");
    std::filesystem::create_symlink("real/a", "logs/inside");
    std::filesystem::create_symlink("../outside/secret", "logs/file");
    std::filesystem::create_symlink(In("outside"), "logs/folder");
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

TEST_F(Driver, ASourceMayItselfBeALink) {
    Write("real/a", "x");
    std::filesystem::create_symlink("real", "logs");
    EXPECT_EQ(Outcomes(Run({Folder("logs")})), (Lines{"complete: "}));
    EXPECT_EQ(Contents("area/logs/a"), "x");
}

TEST_F(Driver, SaysWhatIsNoFile) {
    Write("logs/a", "x");
    ASSERT_EQ(mkfifo("logs/pipe", 0600), 0);
    const auto reports = Run({Folder("logs")});
    EXPECT_EQ(Outcomes(reports), (Lines{"incomplete: 1 path not copied"}));
    EXPECT_EQ(Failures(reports[0]), (Lines{"logs/pipe: not a regular file"}));
    EXPECT_EQ(reports[0].files, 1U);
}

TEST_F(Driver, NoticesPathsThatArePassedOverWithoutAWord) {
    const std::string deep = "logs/" + std::string(100, 'd') + '/' + std::string(90, 'e');
    Write(deep + "/f", "x");
    std::ofstream(deep + '/' + std::string(80, 'g')) << "x";
    const auto reports = Run({Folder("logs")});
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].outcome, Outcome::kIncomplete);
    const std::string reason = ": the path is longer than 255 bytes, which ends the copy of its folder";
    const Lines failures = Failures(reports[0]);
    EXPECT_NE(std::find(failures.begin(), failures.end(), deep + '/' + std::string(80, 'g') + reason), failures.end());
}

TEST_F(Driver, TakesInWhatTheStartedToolsSay) {
    Write("logs/a b", "x");
    const auto reports = Run({Folder("logs")});
    EXPECT_EQ(Outcomes(reports), (Lines{"complete: "}));
    EXPECT_EQ(Contents("area/logs/a b"), "x");
    const auto& messages = reports[0].messages.list;
    EXPECT_TRUE(std::any_of(messages.begin(), messages.end(),
                            [](const std::string& message) { return message.starts_with("touch: "); }));
    EXPECT_NE(std::find(messages.begin(), messages.end(), "change file [****logs/a b]->[****logs/a b] time fail"),
              messages.end());
}

TEST_F(Driver, AnInterruptEndsTheEntryAndLeavesTheOthersOut) {
    for (int i = 0; i < 2000; ++i) {
        Write("logs/" + std::to_string(i), "x");
    }
    bool raised = false;
    onProgress_ = [&](const Progress& progress) {
        if (progress.files > 0 && !raised) {
            raised = kill(getpid(), kCtrlC) == 0;
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

TEST_F(Driver, ASecondInterruptGivesUpACopyThatHangs) {
    const Entry hangs{In("logs"), In("area/logs"), 5, [](const char*, const char*, CollectConfig&) {
                          for (;;) {
                              (void)pause();
                          }
                      }};
    Write("logs", "x");
    pid_t child = -1;
    onProgress_ = [&](const Progress&) {
        child = ChildOf(getpid());
        (void)kill(getpid(), kCtrlC);
    };
    EXPECT_TRUE(Run({hangs}).empty());
    EXPECT_GT(child, 0);
    EXPECT_FALSE(support::IsAlive(child));
}

TEST_F(Driver, ACopyThatCrashesIsReportedAndTheOthersGoOn) {
    Write("logs/a", "x");
    const Entry crashes{In("logs"), In("area/crash"), 5,
                        [](const char*, const char*, CollectConfig&) { (void)raise(SIGKILL); }};
    const auto reports = Run({crashes, Folder("logs")});
    EXPECT_EQ(Outcomes(reports), (Lines{"failed: its process was ended by Killed", "complete: "}));
}

TEST_F(Driver, NamedSourcesGetPlacesOfTheirOwn) {
    Write("a/logs/x", "1");
    Write("b/logs/y", "2");
    Write("area/logs-2", "taken");
    Write("file", "3");
    const Entries entries = EntriesOfSources({"a/logs/", "./b/../b/logs", "file", "gone"}, In("area"), 7);
    EXPECT_EQ(entries.error, "");
    ASSERT_EQ(entries.list.size(), 4U);
    EXPECT_EQ(entries.list[0].source, In("a/logs"));
    EXPECT_EQ(entries.list[0].destination, In("area/logs"));
    EXPECT_EQ(entries.list[0].copy, InspectCopyDirFile);
    EXPECT_EQ(entries.list[0].limit, 7U);
    EXPECT_EQ(entries.list[1].source, In("b/logs"));
    EXPECT_EQ(entries.list[1].destination, In("area/logs-3"));
    EXPECT_EQ(entries.list[2].copy, InspectCopyFile);
    EXPECT_EQ(entries.list[3].destination, In("area/gone"));
}

TEST_F(Driver, SourcesThatCannotBeCopiedAreRefusedBeforehand) {
    const std::string longPath = '/' + std::string(255, 'x');
    EXPECT_EQ(EntriesOfSources({longPath}, In("area"), 5).error, "the path is longer than 255 bytes: " + longPath);
    EXPECT_EQ(EntriesOfSources({""}, In("area"), 5).error, "a source is empty");
    EXPECT_EQ(EntriesOfSources({folder_}, In("area"), 5).error,
              "the area " + In("area") + " lies inside the source " + folder_ + "; --area names another one");
    EXPECT_EQ(EntriesOfSources({"/"}, In("area"), 5).error,
              "the area " + In("area") + " lies inside the source /; --area names another one");
}

TEST_F(Driver, ATemporaryAreaGoesWithAllThatIsInIt) {
    ASSERT_EQ(setenv("TMPDIR", folder_.c_str(), 1), 0);
    auto area = TemporaryArea::Make();
    ASSERT_NE(area, nullptr);
    EXPECT_EQ(std::filesystem::path(area->Path()).parent_path(), folder_);
    EXPECT_EQ(std::filesystem::status(area->Path()).permissions(), std::filesystem::perms::owner_all);
    Write("outside", "x");
    std::filesystem::create_directories(area->Path() + "/a/b");
    std::filesystem::create_symlink(In("outside"), area->Path() + "/a/link");
    area.reset();
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_), {}), 1);
    EXPECT_EQ(Contents("outside"), "x");
}

}  // namespace
