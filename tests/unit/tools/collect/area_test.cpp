// The folder that the entries are copied into, and how paths lie to each other.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include <sys/stat.h>

#include "collect/area.h"
#include "support/eventually.h"
#include "support/forked.h"
#include "support/temp_folder.h"

using namespace ominspect::collect;
using support::Contents;
using support::WriteFile;

namespace {

class AreaTest : public testing::Test {
protected:
    const support::WorkingFolder work_;
};

TEST_F(AreaTest, ATemporaryAreaGoesWithAllThatIsInIt) {
    ASSERT_EQ(setenv("TMPDIR", work_.Path().c_str(), 1), 0);
    auto made = TemporaryArea::Make();
    ASSERT_TRUE(made) << made.Failure().text;
    auto area = std::move(*made);
    EXPECT_EQ(std::filesystem::path(area->Path()).parent_path(), work_.Path());
    EXPECT_EQ(std::filesystem::status(area->Path()).permissions(), std::filesystem::perms::owner_all);
    WriteFile("outside", "x");
    std::filesystem::create_directories(area->Path() + "/a/b");
    std::filesystem::create_symlink(work_ / "outside", area->Path() + "/a/link");
    area.reset();
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(work_.Path()), {}), 1);
    EXPECT_EQ(Contents("outside"), "x");
}

TEST_F(AreaTest, ATemporaryAreaThatCannotBeRemovedIsTold) {
    const auto told = support::InForkedChild([this]() -> std::vector<std::string> {
        support::BecomeNobodyWith(work_.Path());
        (void)setenv("TMPDIR", work_.Path().c_str(), 1);
        auto made = TemporaryArea::Make();
        const std::string path = (*made)->Path();
        WriteFile(path + "/closed/file", "x");
        (void)chmod((path + "/closed").c_str(), 0500);
        (void)std::freopen("err", "w", stderr);
        made->reset();
        (void)std::fflush(stderr);
        (void)chmod((path + "/closed").c_str(), 0700);
        return {path, Contents("err")};
    });
    ASSERT_EQ(told.size(), 2U);
    EXPECT_EQ(told[1], "cannot remove " + told[0] + ": Permission denied\n");
}

TEST_F(AreaTest, ATemporaryAreaThatCannotBeMadeIsAnError) {
    ASSERT_EQ(setenv("TMPDIR", (work_ / "missing").c_str(), 1), 0);
    const auto made = TemporaryArea::Make();
    ASSERT_FALSE(made);
    EXPECT_EQ(made.Failure().text, "No such file or directory");
}

TEST_F(AreaTest, ATemporaryAreaIsInTmpWithoutTmpdir) {
    for (const char* value : {"", static_cast<const char*>(nullptr)}) {
        (void)(value == nullptr ? unsetenv("TMPDIR") : setenv("TMPDIR", value, 1));
        const auto made = TemporaryArea::Make();
        ASSERT_TRUE(made);
        EXPECT_TRUE((*made)->Path().starts_with("/tmp/ominspect-")) << (*made)->Path();
    }
}

TEST_F(AreaTest, AbsolutePathsAreTidyAndLeaveLinksAlone) {
    std::filesystem::create_directories("real/sub");
    std::filesystem::create_symlink("real/sub", "link");
    EXPECT_EQ(AbsolutePath("a//./b/"), work_ / "a/b");
    EXPECT_EQ(AbsolutePath("/"), "/");
    EXPECT_EQ(AbsolutePath("link/x"), work_ / "link/x");
    EXPECT_EQ(AbsolutePath("link/.."), work_ / "real") << "not the folder of the link";
    EXPECT_EQ(ResolvedPath("link/x"), work_ / "real/sub/x");
    EXPECT_EQ(ResolvedPath("link/"), work_ / "real/sub");
}

TEST_F(AreaTest, InsideIsDecidedByWholeNames) {
    EXPECT_TRUE(IsInside("/a/b", "/a"));
    EXPECT_TRUE(IsInside("/a", "/a"));
    EXPECT_TRUE(IsInside("/a", "/"));
    EXPECT_FALSE(IsInside("/ab", "/a"));
    EXPECT_FALSE(IsInside("/a", "/a/b"));
}

TEST_F(AreaTest, PathsOverlapInBothDirectionsAndThroughLinks) {
    std::filesystem::create_directories("real/sub");
    std::filesystem::create_symlink("real", "link");
    EXPECT_TRUE(Overlap("real", "real/sub"));
    EXPECT_TRUE(Overlap("real/sub", "real"));
    EXPECT_TRUE(Overlap("real", "link/sub"));
    EXPECT_FALSE(Overlap("real", "other"));
}

TEST_F(AreaTest, OnlyWhatLiesInTheFolderIsMoved) {
    EXPECT_EQ(Moved("/area/a/b/", "/area", "/new/one"), "/new/one/a/b");
    EXPECT_EQ(Moved("/area", "/area", "/new/one"), "/new/one");
    EXPECT_EQ(Moved("/other/a", "/area", "/new/one"), "/other/a");
    EXPECT_EQ(Moved("/area/../other", "/area", "/new/one"), "/area/../other");
    EXPECT_EQ(Moved("/area/a/../b", "/area", "/area"), "/area/a/../b") << "as it is configured";
}

TEST_F(AreaTest, APlaceIsRelativeToTheArea) {
    EXPECT_EQ(PlaceIn("/area", "/area/a/b/"), "a/b");
    EXPECT_EQ(PlaceIn("/area/", "/area//a"), "a");
    EXPECT_FALSE(PlaceIn("/area", "/area"));
    EXPECT_FALSE(PlaceIn("/area", "/other/a"));
    EXPECT_FALSE(PlaceIn("/area", "/area/a/../b"));
    EXPECT_FALSE(PlaceIn("/area", "area/a"));
}

// Others use the same disk: until nobody has changed it between the two questions.
TEST_F(AreaTest, FreeBytesAreThoseOfTheFirstFolderThatExists) {
    for (const std::string& path : {work_.Path().string(), work_ / "not/there/yet"}) {
        EXPECT_TRUE(
            support::Eventually([&] { return FreeBytes(path) == std::filesystem::space(work_.Path()).available; }));
    }
    EXPECT_FALSE(FreeBytes("nowhere"));
}

}  // namespace
