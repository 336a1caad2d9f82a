// The folder that the entries are copied into.
#include <gtest/gtest.h>

#include <cstdlib>

#include "collect/area.h"
#include "support/temp_folder.h"

using namespace ominspect::collect;
using support::Contents;
using support::WriteFile;

namespace {

TEST(AreaTest, ATemporaryAreaGoesWithAllThatIsInIt) {
    const support::WorkingFolder work;
    ASSERT_EQ(setenv("TMPDIR", work.Path().c_str(), 1), 0);
    auto made = TemporaryArea::Make();
    ASSERT_TRUE(made) << made.Failure().text;
    auto area = std::move(*made);
    EXPECT_EQ(std::filesystem::path(area->Path()).parent_path(), work.Path());
    EXPECT_EQ(std::filesystem::status(area->Path()).permissions(), std::filesystem::perms::owner_all);
    WriteFile("outside", "x");
    std::filesystem::create_directories(area->Path() + "/a/b");
    std::filesystem::create_symlink(work / "outside", area->Path() + "/a/link");
    area.reset();
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(work.Path()), {}), 1);
    EXPECT_EQ(Contents("outside"), "x");
}

}  // namespace
