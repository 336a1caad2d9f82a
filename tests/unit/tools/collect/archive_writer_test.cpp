// The archive as a stream: what a member carries, and how an error ends it.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include <sys/stat.h>

#include "collect/archive_writer.h"
#include "support/archive_reader.h"
#include "support/temp_folder.h"

using namespace ominspect;
using namespace ominspect::collect;
using support::MemberOf;

namespace {

class ArchiveWriterTest : public testing::Test {
protected:
    ArchiveWriterTest() {
        status_.st_mode = S_IFREG | 04640;
        status_.st_uid = 12;
        status_.st_gid = 34;
        status_.st_mtim.tv_sec = 1000000000;
    }

    // Takes the archive's bytes; from `room` on it fails.
    std::optional<Error> Take(std::string_view data) {
        if (bytes_.size() + data.size() > room_) {
            return SystemError(ENOSPC);
        }
        bytes_ += data;
        return std::nullopt;
    }

    std::vector<support::Member> Members() const {
        const support::TempFolder folder;
        support::WriteFile(folder / "a.tar.zst", bytes_);
        return support::ReadArchive(folder / "a.tar.zst");
    }

    struct stat status_ {};
    std::size_t room_ = 1000000;
    std::string bytes_;
    ArchiveWriter archive_{[this](std::string_view data) { return Take(data); }};
};

TEST_F(ArchiveWriterTest, MembersKeepTheirRightsOwnersAndTimes) {
    EXPECT_FALSE(archive_.AddFolder("folder", status_));
    EXPECT_FALSE(archive_.BeginFile("folder/file", status_, 5));
    EXPECT_FALSE(archive_.Data("12"));
    EXPECT_FALSE(archive_.Data("")) << "nothing is no error";
    EXPECT_FALSE(archive_.Data("345"));
    EXPECT_FALSE(archive_.AddLink("link", "target", status_));
    EXPECT_FALSE(archive_.Close());
    const auto members = Members();
    EXPECT_EQ(support::Listing(members), (std::vector<std::string>{"d folder/", "- folder/file", "l link"}));
    EXPECT_EQ(MemberOf(members, "folder/file").content, "12345");
    EXPECT_EQ(MemberOf(members, "link").target, "target");
    for (const support::Member& member : members) {
        EXPECT_EQ(member.permissions, 0640U) << member.name << ": no more than the rights themselves";
        EXPECT_EQ(member.owner, 12) << member.name;
        EXPECT_EQ(member.group, 34) << member.name;
        EXPECT_EQ(member.modified, 1000000000) << member.name;
    }
}

TEST_F(ArchiveWriterTest, MoreDataThanAnnouncedEndsTheArchive) {
    EXPECT_FALSE(archive_.BeginFile("file", status_, 2));
    const auto error = archive_.Data("123");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->text, "more data than the size of the file");
    EXPECT_TRUE(archive_.AddFolder("folder", status_));
    EXPECT_TRUE(archive_.Close());
}

TEST_F(ArchiveWriterTest, MoreDataAfterTheLastByteEndsTheArchive) {
    EXPECT_FALSE(archive_.BeginFile("file", status_, 2));
    EXPECT_FALSE(archive_.Data("12"));
    const auto error = archive_.Data("3");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->text, "more data than the size of the file");
}

TEST_F(ArchiveWriterTest, AnErrorOfTheLibraryIsToldInItsWords) {
    const auto error = archive_.Data("of no file");
    ASSERT_TRUE(error);
    EXPECT_NE(error->text.find("archive_write_data"), std::string::npos) << error->text;
    EXPECT_TRUE(archive_.Close());
}

TEST_F(ArchiveWriterTest, AnErrorOfTheSinkIsGivenAgainByEveryLaterCall) {
    room_ = 0;
    ASSERT_FALSE(archive_.AddFolder("folder", status_)) << "nothing was written yet";
    for (const auto& error :
         {archive_.Close(), archive_.AddFolder("folder", status_), archive_.BeginFile("file", status_, 1),
          archive_.Data("x"), archive_.AddLink("link", "target", status_), archive_.Close()}) {
        ASSERT_TRUE(error);
        EXPECT_EQ(error->number, ENOSPC);
    }
}

TEST_F(ArchiveWriterTest, WithoutCloseNothingFollows) {
    std::size_t taken = 0;
    bool alive = true;
    {
        ArchiveWriter archive([&](std::string_view data) -> std::optional<Error> {
            EXPECT_TRUE(alive) << "after the last call";
            taken += data.size();
            return std::nullopt;
        });
        EXPECT_FALSE(archive.BeginFile("file", status_, 1000000));
        EXPECT_FALSE(archive.Data("begin"));
        alive = false;
    }
    EXPECT_EQ(taken, 0U);
}

}  // namespace
