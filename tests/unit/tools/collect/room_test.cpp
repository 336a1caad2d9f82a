// How much room a file system has, and how much the copies that are replaced give back.
#include <gtest/gtest.h>

#include "collect/room.h"
#include "support/eventually.h"
#include "support/temp_folder.h"

using namespace ominspect::collect;
using support::WriteFile;

namespace {

class RoomTest : public testing::Test {
protected:
    const support::WorkingFolder work_;
};

// Others use the same disk: until nobody has changed it between the two questions.
TEST_F(RoomTest, IsThatOfTheFirstFolderThatExists) {
    for (const std::string& path : {work_.Path().string(), work_ / "not/there/yet"}) {
        EXPECT_TRUE(
            support::Eventually([&] { return FreeBytes(path) == std::filesystem::space(work_.Path()).available; }));
    }
    EXPECT_FALSE(FreeBytes("nowhere"));
}

TEST_F(RoomTest, OfReplacedCopiesIsThatOfTheirFiles) {
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

}  // namespace
