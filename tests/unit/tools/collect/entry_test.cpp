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
    EXPECT_EQ(MistakeOf({""}), "a source is empty");
    EXPECT_EQ(MistakeOf({work_.Path()}), "the area " + work_ / "area" + " lies inside the source " +
                                             work_.Path().string() + "; --area names another one");
    EXPECT_EQ(MistakeOf({"/"}), "the area " + work_ / "area" + " lies inside the source /; --area names another one");
}

}  // namespace
