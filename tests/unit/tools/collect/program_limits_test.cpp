// Limits of time and size, and what is left out.
#include "program.h"

namespace support {
namespace {

TEST_F(CollectProgram, ACopyThatHangsIsEndedAndTheRestGoesOn) {
    WriteMany("logs", 20);
    WriteFile("logs/hang", "never");
    WriteFile("later/a", "x");
    EXPECT_EQ(Run({"logs", "later", "--timeout", "1", "--output", "p.tar.zst"}, kSlowDisk), 1);
    const auto members = ReadArchive("p.tar.zst");
    const json::Value document = Manifest(members, "p");
    const json::View manifest = document.Read();
    CheckSums(members, manifest, "p");
    EXPECT_EQ(Outcomes(manifest), (Lines{"logs: cut short", "later: complete"}));
    const json::View entry = manifest["entries"].At(0);
    EXPECT_EQ(entry["cutShort"].Flag(), true);
    EXPECT_EQ(TextAt(entry, "remark"), "the time limit of 1 s ended it");
    EXPECT_EQ(NumberAt(entry, "timeLimitSeconds"), 1U);
    EXPECT_GE(NumberAt(entry, "durationMs"), 1000U) << "the whole second";
    EXPECT_EQ(TextAt(entry["failures"].At(0), "path"), work_ / "logs/hang");
    EXPECT_EQ(TextAt(entry["failures"].At(0), "reason"), "its copy was ended in the middle");
    EXPECT_TRUE(Holds(Contents("out"), "cut short: the time limit of 1 s ended it"));
}

TEST_F(CollectProgram, TheTimeForAllEntriesEndsTheSlowOneAndLeavesTheOthersOut) {
    for (int i = 0; i < 1000; ++i) {
        WriteFile("logs/slow" + std::to_string(i), "x");
    }
    WriteFile("later/a", "x");
    EXPECT_EQ(Run({"logs", "later", "--timeout", "60", "--total-timeout", "1", "--output", "p.tar.zst"}, kSlowDisk), 1);
    const json::Value document = Manifest(ReadArchive("p.tar.zst"), "p");
    const json::View manifest = document.Read();
    EXPECT_EQ(Outcomes(manifest), (Lines{"logs: cut short", "later: not started"}));
    const json::View entry = manifest["entries"].At(0);
    EXPECT_EQ(TextAt(entry, "remark"), "the time limit for all entries of 1 s ended it");
    EXPECT_EQ(NumberAt(entry, "timeLimitSeconds"), 1U);
    EXPECT_LT(NumberAt(entry, "files"), 1000U);
}

TEST_F(CollectProgram, TheTimeForAllEntriesIsADayAtMost) {
    WriteFile("one", "x");
    EXPECT_EQ(Run({"one", "--total-timeout", "86400", "--output", "p.tar.zst"}), 0) << Contents("err");
}

TEST_F(CollectProgram, TakesWhatFitsAndWhatIsNotExcluded) {
    WriteFile("logs/a.log", std::string(900, 'x'));
    WriteFile("logs/sub/b.log", std::string(900, 'x'));
    WriteFile("logs/c.gz", "x");
    EXPECT_EQ(Run({"logs", "--max-size", "1K", "--exclude", "*.gz", "--exclude", "nothing", "--output", "p.tar.zst"}),
              1);
    const json::Value document = Manifest(ReadArchive("p.tar.zst"), "p");
    const json::View entry = document.Read()["entries"].At(0);
    EXPECT_EQ(NumberAt(entry, "files"), 1U);
    EXPECT_EQ(NumberAt(entry, "failureCount"), 1U);
    EXPECT_EQ(TextAt(entry["failures"].At(0), "reason"), "beyond the size limit");
    EXPECT_EQ(Run({"logs", "--exclude", "*", "--output", "q.tar.zst"}), 0);
    EXPECT_EQ(Run({"logs", "--max-size", "1", "--output", "r.tar.zst"}), 1);
    EXPECT_EQ(NumberAt(Manifest(ReadArchive("r.tar.zst"), "r").Read()["entries"].At(0), "bytes"), 1U);
    EXPECT_EQ(Run({"logs", "--max-size", "much"}), 2);
}

TEST_F(CollectProgram, ADryRunSaysWhatItWouldTakeAndWritesNothing) {
    WriteFile("logs/a", "12345");
    WriteFile("one", "x");
    const Lines before = Names();
    EXPECT_EQ(Run({"logs", "one", "--dry-run"}), 0) << Contents("err");
    EXPECT_TRUE(Holds(Contents("out"), "\nnothing was copied: 6 B in all, ")) << Contents("out");
    EXPECT_EQ(Run({"logs", "--dry-run", "--json"}), 0);
    const auto manifest = json::Value::Parse(Contents("out"));
    ASSERT_TRUE(manifest);
    EXPECT_EQ(manifest->Read()["dryRun"].Flag(), true);
    EXPECT_EQ(NumberAt(manifest->Read()["entries"].At(0), "bytes"), 5U);
    EXPECT_EQ(TextAt(manifest->Read(), "version"), "0.1.0");
    EXPECT_GT(TextAt(manifest->Read(), "started"), "1971-") << "not the epoch";
    Lines after = Names();
    std::erase_if(after, [](const std::string& name) { return name == "out" || name == "err"; });
    EXPECT_EQ(after, before);
}

TEST_F(CollectProgram, LooksForRoomBeforeItCopies) {
    WriteFile("logs/huge", "");
    std::filesystem::resize_file("logs/huge", std::uintmax_t{1} << 43U);
    EXPECT_EQ(Run({"logs", "--area", "area", "--output", "p.tar.zst"}), 1);
    EXPECT_TRUE(
        Contents("err").starts_with("ominspectctl: not enough room in " + work_ / "area" + ": 8.0 TiB are needed"))
        << Contents("err");
    EXPECT_EQ(Names(), (Lines{"err", "logs", "out"}));
    EXPECT_EQ(Run({"logs", "--area", "area", "--output", "p.tar.zst", "--max-size", "1M"}), 1);
    EXPECT_EQ(MemberOf(ReadArchive("p.tar.zst"), "p/manifest.json").type, '-');
}

}  // namespace
}  // namespace support
