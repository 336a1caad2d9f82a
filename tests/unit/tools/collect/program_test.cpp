// The command collect as people run it: what a package holds, and what its manifest says.
#include <unistd.h>

#include <regex>

#include "program.h"

namespace support {
namespace {

TEST_F(CollectProgram, PacksNamedSourcesWithTheirManifest) {
    WriteFile("logs/a.log", "first");
    WriteFile("logs/sub/b.log", "second");
    WriteFile("one.log", "third");
    EXPECT_EQ(Run({"logs", "one.log", "--output", "p.tar.zst"}), 0) << Contents("err");
    const auto members = ReadArchive("p.tar.zst");
    EXPECT_EQ(Listing(members),
              (Lines{"d p/", "d p/files/", "d p/files/logs/", "- p/files/logs/a.log", "d p/files/logs/sub/",
                     "- p/files/logs/sub/b.log", "- p/files/one.log", "- p/manifest.json"}));
    EXPECT_EQ(MemberOf(members, "p/files/logs/sub/b.log").content, "second");
    EXPECT_EQ(MemberOf(members, "p/").permissions, 0755U);
    EXPECT_EQ(MemberOf(members, "p/files/").permissions, 0755U);
    EXPECT_EQ(MemberOf(members, "p/manifest.json").permissions, 0644U);
    EXPECT_EQ(MemberOf(members, "p/manifest.json").owner, geteuid());
    EXPECT_EQ(MemberOf(members, "p/manifest.json").group, getegid());
    const json::Value document = Manifest(members, "p");
    const json::View manifest = document.Read();
    CheckSums(members, manifest, "p");
    EXPECT_EQ(NumberAt(manifest, "format"), 1U);
    EXPECT_EQ(TextAt(manifest, "tool"), "ominspectctl");
    EXPECT_EQ(TextAt(manifest, "version"), "0.1.0");
    EXPECT_EQ(TextAt(manifest, "file"), "p.tar.zst");
    EXPECT_EQ(TextAt(manifest, "started").size(), std::string("2026-11-21T01:02:03Z").size());
    EXPECT_GT(TextAt(manifest, "started"), "1971-") << "not the epoch";
    EXPECT_GE(TextAt(manifest, "collected"), TextAt(manifest, "started"));
    EXPECT_GT(MemberOf(members, "p/").modified, 365LL * 24 * 3600) << "nor here";
    EXPECT_EQ(TextAt(manifest, "configuration"), "the command line");
    EXPECT_EQ(manifest["complete"].Flag(), true);
    EXPECT_EQ(manifest["interrupted"].Flag(), false);
    EXPECT_EQ(Outcomes(manifest), (Lines{"logs: complete", "one.log: complete"}));
    const json::View first = manifest["entries"].At(0);
    EXPECT_EQ(TextAt(first, "kind"), "folder");
    EXPECT_EQ(NumberAt(first, "files"), 2U);
    EXPECT_EQ(NumberAt(first, "bytes"), 11U);
    EXPECT_EQ(NumberAt(first, "timeLimitSeconds"), 5U);
    struct stat status {};
    ASSERT_EQ(stat("p.tar.zst", &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
    EXPECT_TRUE(Holds(Contents("out"), "complete\npackage: p.tar.zst, ")) << Contents("out");
    EXPECT_TRUE(Holds(Contents("err"), "[1/2] " + work_ / "logs" + ": 2 files, 11 B, ")) << Contents("err");
    EXPECT_TRUE(std::regex_search(Contents("err"), std::regex(": 2 files, 11 B, [0-9]+\\.[0-9] s, complete\n")))
        << Contents("err");
}

TEST_F(CollectProgram, AnotherToolUnpacksWhatTheManifestSays) {
    WriteFile("logs/a.log", "first");
    WriteFile("logs/bad\xff", "second");
    ASSERT_EQ(Run({"logs", "--output", "p.tar.zst"}), 0);
    ASSERT_EQ(support::Run({"bsdtar", "-xf", "p.tar.zst"}).exitCode, 0);
    EXPECT_EQ(Contents("p/files/logs/a.log"), "first");
    EXPECT_EQ(Contents("p/files/logs/bad\xff"), "second");
    EXPECT_TRUE(Holds(Contents("p/manifest.json"), R"("path":	"logs/bad\\xff")"));
}

TEST_F(CollectProgram, JsonPrintsTheManifestThatIsInThePackage) {
    WriteFile("one", "x");
    ASSERT_EQ(Run({"one", "--output", "p.tar.zst", "--json"}), 0);
    EXPECT_EQ(Contents("out"), MemberOf(ReadArchive("p.tar.zst"), "p/manifest.json").content);
    EXPECT_TRUE(Holds(Contents("err"), "package: p.tar.zst, "));
}

TEST_F(CollectProgram, ReportsAMissingSourceAndPacksTheOthers) {
    WriteFile("logs/a", "x");
    EXPECT_EQ(Run({"nowhere", "logs", "--output", "p.tar.zst"}), 1);
    const auto members = ReadArchive("p.tar.zst");
    EXPECT_EQ(MemberOf(members, "p/files/logs/a").content, "x");
    const json::Value document = Manifest(members, "p");
    const json::View manifest = document.Read();
    EXPECT_EQ(Outcomes(manifest), (Lines{"nowhere: missing", "logs: complete"}));
    EXPECT_EQ(manifest["complete"].Flag(), false);
    EXPECT_TRUE(Holds(Contents("out"), "missing: the source does not exist"));
}

}  // namespace
}  // namespace support
