// Where the entries of a collection come from.
#include <gtest/gtest.h>

#include "collect/entry.h"
#include "support/temp_folder.h"

using namespace ominspect;
using namespace ominspect::collect;
using support::WriteFile;

namespace {

class EntryTest : public testing::Test {
protected:
    // Why these sources are not taken.
    std::string MistakeOf(const std::vector<std::string>& sources) const {
        const auto read = EntriesOfSources(sources, work_ / "area", 5);
        EXPECT_FALSE(read);
        return read ? "taken" : read.Failure().text;
    }

    const support::WorkingFolder work_;
};

TEST_F(EntryTest, NamedSourcesGetPlacesOfTheirOwn) {
    WriteFile("a/logs/x", "1");
    WriteFile("b/logs/y", "2");
    WriteFile("area/logs-2", "taken");
    WriteFile("file", "3");
    const auto read = EntriesOfSources({"a/logs/", "./b/../b/logs", "file", "gone"}, work_ / "area", 7);
    ASSERT_TRUE(read) << read.Failure().text;
    const auto& list = read->list;
    ASSERT_EQ(list.size(), 4U);
    EXPECT_EQ(list[0].source, work_ / "a/logs");
    EXPECT_EQ(list[0].destination, work_ / "area/logs");
    EXPECT_EQ(list[0].copy, InspectCopyDirFile);
    EXPECT_EQ(list[0].limit, 7U);
    EXPECT_EQ(list[1].source, work_ / "b/logs");
    EXPECT_EQ(list[1].destination, work_ / "area/logs-3");
    EXPECT_EQ(list[2].copy, InspectCopyFile);
    EXPECT_EQ(list[3].destination, work_ / "area/gone");
}

TEST_F(EntryTest, SourcesThatCannotBeCopiedAreRefusedBeforehand) {
    const std::string longPath = '/' + std::string(255, 'x');
    EXPECT_EQ(MistakeOf({longPath}), "the path is longer than 255 bytes: " + longPath);
    EXPECT_TRUE(EntriesOfSources({'/' + std::string(252, 'x') + "/f"}, work_ / "area", 5)) << "255 bytes";
    EXPECT_EQ(MistakeOf({'/' + std::string(254, 'x')}),
              "the path in the area would be longer than 255 bytes: " + work_ / "area/" + std::string(254, 'x'));
    const std::string fitting(255 - (work_ / "area/").size(), 'x');
    EXPECT_TRUE(EntriesOfSources({'/' + fitting}, work_ / "area", 5)) << "255 bytes in the area";
    EXPECT_EQ(MistakeOf({'/' + fitting + 'x'}),
              "the path in the area would be longer than 255 bytes: " + work_ / "area/" + fitting + 'x');
    EXPECT_EQ(MistakeOf({""}), "a source is empty");
    EXPECT_EQ(MistakeOf({work_.Path()}), "the area " + work_ / "area" + " lies inside the source " +
                                             work_.Path().string() + "; --area names another one");
    EXPECT_EQ(MistakeOf({"/"}), "the area " + work_ / "area" + " lies inside the source /; --area names another one");
}

TEST(EntryWords, AreStable) {
    EXPECT_STREQ(OutcomeWord(Outcome::kComplete), "complete");
    EXPECT_STREQ(OutcomeWord(Outcome::kIncomplete), "incomplete");
    EXPECT_STREQ(OutcomeWord(Outcome::kCutShort), "cut short");
    EXPECT_STREQ(OutcomeWord(Outcome::kInterrupted), "interrupted");
    EXPECT_STREQ(OutcomeWord(Outcome::kMissing), "missing");
    EXPECT_STREQ(OutcomeWord(Outcome::kRefused), "refused");
    EXPECT_STREQ(OutcomeWord(Outcome::kFailed), "failed");
    EXPECT_STREQ(OutcomeWord(Outcome::kNotStarted), "not started");
    EXPECT_STREQ(KindWord(InspectCopyDirFile), "folder");
    EXPECT_STREQ(KindWord(InspectCopyFile), "file");
    EXPECT_STREQ(KindWord(InspectCopyWylogsFile), "system log");
}

TEST(EntryLimit, IsAtMostAMinute) {
    EXPECT_EQ(LimitOf({"/a", "/b", 60, InspectCopyDirFile}), std::chrono::seconds(60));
    EXPECT_EQ(LimitOf({"/a", "/b", 61, InspectCopyDirFile}), std::chrono::seconds(60));
    EXPECT_EQ(LimitOf({"/a", "/b", 5, InspectCopyFile}), std::chrono::seconds(5));
}

TEST_F(EntryTest, AFolderThatIsConfiguredAsAFileIsMirroredToo) {
    WriteFile("folder/file", "x");
    EXPECT_TRUE(MirrorsFolder({work_ / "folder", "/b", 5, InspectCopyFile}));
    EXPECT_FALSE(MirrorsFolder({work_ / "folder/file", "/b", 5, InspectCopyFile}));
    EXPECT_TRUE(MirrorsFolder({"/nowhere", "/b", 5, InspectCopyDirFile}));
    EXPECT_TRUE(MirrorsFolder({"/nowhere", "/b", 5, InspectCopyWylogsFile})) << "no backup is kept here";
}

TEST_F(EntryTest, OfAFileAreReadByTheServersLoader) {
    WriteFile("c.xml",
              "<c><LogCollect><Log srcPath='/s' dstPath='/d' timeout='7' isFolder='true'/>"
              "<Log srcPath='/f' dstPath='/e' timeout='x' isFolder='false'/></LogCollect></c>");
    const auto entries = EntriesOfFile("c.xml");
    ASSERT_TRUE(entries);
    ASSERT_EQ(entries->list.size(), 2U);
    EXPECT_EQ(entries->list[0].source, "/s");
    EXPECT_EQ(entries->list[0].destination, "/d");
    EXPECT_EQ(entries->list[0].limit, 7U);
    EXPECT_EQ(entries->list[0].copy, InspectCopyDirFile);
    EXPECT_EQ(entries->list[1].copy, InspectCopyFile);
    EXPECT_EQ(entries->messages, (std::vector<std::string>{"String2Uint32 err,[x] is not digit."}));
    const auto missing = EntriesOfFile("missing.xml");
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.Failure().code, ErrorCode::kInvalidArgument);
    EXPECT_TRUE(missing.Failure().text.starts_with("missing.xml: ")) << missing.Failure().text;
}

TEST_F(EntryTest, ReplacedBytesAreThoseOfTheFilesInTheOldCopies) {
    WriteFile("outside", "12345678");
    WriteFile("first/a", "1");
    WriteFile("first/deep/b", "12");
    std::filesystem::create_symlink(work_ / "outside", "first/link");
    WriteFile("second/c", "1234");
    const std::vector<Entry> entries{
        {"", "first", 0, nullptr}, {"", "missing", 0, nullptr}, {"", "second", 0, nullptr}};
    EXPECT_EQ(ReplacedBytes(entries), 7U);
    EXPECT_EQ(ReplacedBytes({}), 0U);
}

TEST(CopyRulesTest, APatternMatchesThePathOrItsLastName) {
    CopyRules rules;
    rules.exclude = {"sub/deep/*.log", "*.core", "cache"};
    EXPECT_TRUE(rules.Excludes("sub/deep/a.log"));
    EXPECT_TRUE(rules.Excludes("sub/deep/a.core"));
    EXPECT_TRUE(rules.Excludes("a.core"));
    EXPECT_TRUE(rules.Excludes("sub/cache"));
    EXPECT_FALSE(rules.Excludes("deep/a.log"));
    EXPECT_FALSE(rules.Excludes("sub/a-cache"));
    EXPECT_FALSE(rules.Excludes("a.core/b"));
    EXPECT_FALSE(CopyRules().Excludes("a.core"));
}

TEST(CopyRulesTest, AStarMatchesSlashesToo) {
    CopyRules rules;
    rules.exclude = {"s*/a.log"};
    EXPECT_TRUE(rules.Excludes("sub/a.log"));
    EXPECT_TRUE(rules.Excludes("sub/deep/a.log"));
    EXPECT_FALSE(rules.Excludes("sub/deep/b.log"));
}

}  // namespace
