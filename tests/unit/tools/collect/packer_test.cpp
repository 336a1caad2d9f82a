// Packing a tree: what goes into the archive, what is left out, and what is said about both.
#include <algorithm>
#include <cerrno>
#include <fstream>
#include <functional>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "collect/packer.h"
#include "common/output_file.h"
#include "support/archive_reader.h"
#include "support/temp_folder.h"

using namespace ominspect;
using namespace ominspect::collect;
using support::Listing;
using support::MemberOf;
using support::ReadArchive;
using Lines = std::vector<std::string>;

using support::WriteFile;

namespace {

class PackerTest : public testing::Test {
protected:
    // Packs "tree" into "out.tar.zst"; `between` is called before each block and may change the tree.
    std::optional<Error> Pack(const std::function<bool(const PackedTree&)>& between = [](const PackedTree&) {
        return true;
    }) {
        const auto file = OutputFile::Create("out.tar.zst", false);
        EXPECT_TRUE(file);
        ArchiveWriter archive([&](std::string_view data) { return (*file)->Write(data); });
        PackOptions options;
        options.folder = "top";
        options.exclude = [](const struct stat&) { return false; };
        options.goOn = between;
        const auto error = PackTree("tree", options, archive, packed_);
        if (!error) {
            EXPECT_FALSE(archive.Close());
            EXPECT_FALSE((*file)->Commit());
        }
        return error;
    }

    Lines LeftOut() const {
        Lines lines;
        for (const Failure& failure : packed_.leftOut) {
            lines.push_back(failure.path + ": " + failure.reason);
        }
        return lines;
    }

    support::WorkingFolder work_;
    PackedTree packed_;
};

TEST_F(PackerTest, PacksFilesAndFoldersSortedWithTheirSums) {
    WriteFile("tree/b/two", "abc");
    WriteFile("tree/a", "");
    ASSERT_FALSE(Pack());
    const auto members = ReadArchive("out.tar.zst");
    EXPECT_EQ(Listing(members), (Lines{"- top/a", "d top/b/", "- top/b/two"}));
    EXPECT_EQ(MemberOf(members, "top/b/two").content, "abc");
    ASSERT_EQ(packed_.files.size(), 2U);
    EXPECT_EQ(packed_.files[0].sha256, "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(packed_.files[1].sha256, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(packed_.files[1].bytes, 3U);
    EXPECT_EQ(packed_.files[1].note, "");
    struct stat status {};
    ASSERT_EQ(stat("tree/b/two", &status), 0);
    EXPECT_EQ(packed_.files[1].modified.tv_sec, status.st_mtim.tv_sec);
    EXPECT_EQ(packed_.files[1].modified.tv_nsec, status.st_mtim.tv_nsec);
    EXPECT_EQ(packed_.folders, 1U);
    EXPECT_EQ(packed_.bytes, 3U);
}

TEST_F(PackerTest, StoresLinksAsLinksAndFollowsNone) {
    WriteFile("outside/secret", "secret");
    WriteFile("tree/own", "own");
    std::filesystem::create_symlink(work_ / "outside", "tree/folder");
    std::filesystem::create_symlink("../outside/secret", "tree/file");
    std::filesystem::create_symlink("..", "tree/loop");
    std::filesystem::create_symlink("nowhere", "tree/dangling");
    ASSERT_FALSE(Pack());
    const auto members = ReadArchive("out.tar.zst");
    EXPECT_EQ(Listing(members), (Lines{"l top/dangling", "l top/file", "l top/folder", "l top/loop", "- top/own"}));
    EXPECT_EQ(MemberOf(members, "top/file").target, "../outside/secret");
    ASSERT_EQ(packed_.links.size(), 4U);
    EXPECT_EQ(packed_.links[2].path, "folder");
    EXPECT_EQ(packed_.links[2].target, work_ / "outside");
}

TEST_F(PackerTest, LeavesOutWhatIsNoFile) {
    WriteFile("tree/file", "x");
    ASSERT_EQ(mkfifo("tree/pipe", 0600), 0);
    const int socketFd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{AF_UNIX, "tree/socket"};
    ASSERT_EQ(bind(socketFd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    (void)close(socketFd);
    ASSERT_FALSE(Pack());
    EXPECT_EQ(Listing(ReadArchive("out.tar.zst")), (Lines{"- top/file"}));
    EXPECT_EQ(LeftOut(), (Lines{"pipe: a pipe", "socket: a socket"}));
}

TEST_F(PackerTest, KeepsNamesAsTheyAre) {
    const Lines names{"new\nline", "bad\xff", "gr\xC3\xBCn", std::string(200, 'n'), "back\\slash"};
    for (const std::string& name : names) {
        WriteFile("tree/" + name, name);
    }
    ASSERT_FALSE(Pack());
    const auto members = ReadArchive("out.tar.zst");
    for (const std::string& name : names) {
        EXPECT_EQ(MemberOf(members, "top/" + name).content, name);
    }
}

// Not root for a while: to root nothing is unreadable.
class AsNobody {
public:
    AsNobody() : isRoot_(geteuid() == 0) { EXPECT_EQ(isRoot_ ? seteuid(65534) : 0, 0); }
    ~AsNobody() { EXPECT_EQ(isRoot_ ? seteuid(0) : 0, 0); }
    AsNobody(const AsNobody&) = delete;
    AsNobody& operator=(const AsNobody&) = delete;

private:
    bool isRoot_;
};

TEST_F(PackerTest, SaysWhatCannotBeRead) {
    ASSERT_EQ(chmod(".", 0777), 0);
    WriteFile("tree/file", "x");
    WriteFile("tree/folder/inside", "x");
    WriteFile("tree/secret", "x");
    ASSERT_EQ(chmod("tree/secret", 0), 0);
    ASSERT_EQ(chmod("tree/folder", 0), 0);
    {
        const AsNobody user;
        EXPECT_FALSE(Pack());
    }
    ASSERT_EQ(chmod("tree/folder", 0700), 0);
    EXPECT_EQ(LeftOut(), (Lines{"folder: Permission denied", "secret: Permission denied"}));
    EXPECT_EQ(Listing(ReadArchive("out.tar.zst")), (Lines{"- top/file"}));
}

TEST_F(PackerTest, GoesOnWhenAFileVanishes) {
    WriteFile("tree/a", "x");
    WriteFile("tree/b", "x");
    ASSERT_FALSE(Pack([](const PackedTree& packed) {
        if (packed.files.size() == 1) {
            std::filesystem::remove("tree/b");
        }
        return true;
    }));
    EXPECT_EQ(LeftOut(), (Lines{"b: No such file or directory"}));
    EXPECT_EQ(Listing(ReadArchive("out.tar.zst")), (Lines{"- top/a"}));
}

TEST_F(PackerTest, FillsUpAFileThatShrinks) {
    const std::string text(400000, 'x');
    WriteFile("tree/log", text);
    ASSERT_FALSE(Pack([](const PackedTree& packed) {
        if (packed.bytes > 0) {
            std::filesystem::resize_file("tree/log", 10);
        }
        return true;
    }));
    const std::string content = MemberOf(ReadArchive("out.tar.zst"), "top/log").content;
    EXPECT_EQ(content, std::string(131072, 'x') + std::string(400000 - 131072, '\0'));
    ASSERT_EQ(packed_.files.size(), 1U);
    EXPECT_EQ(packed_.files[0].note, "it shrank while it was packed; the last 268928 bytes are zeros");
    EXPECT_EQ(packed_.files[0].bytes, 400000U);
}

TEST_F(PackerTest, CutsAFileThatGrows) {
    WriteFile("tree/log", "12345");
    ASSERT_FALSE(Pack([](const PackedTree&) {
        std::ofstream("tree/log", std::ios::app) << "more";
        return true;
    }));
    ASSERT_EQ(packed_.files.size(), 1U);
    const std::uint64_t size = packed_.files[0].bytes;
    EXPECT_EQ(MemberOf(ReadArchive("out.tar.zst"), "top/log").content.size(), size);
    EXPECT_EQ(packed_.files[0].note,
              "it grew while it was packed; only its first " + std::to_string(size) + " bytes are here");
}

TEST_F(PackerTest, NotesAFileThatIsWrittenOver) {
    WriteFile("tree/log", std::string(400000, 'x'));
    const std::function<bool(const PackedTree&)> overwrite = [](const PackedTree& packed) {
        if (packed.bytes > 0) {
            std::fstream("tree/log", std::ios::in | std::ios::out) << "y";
            const timespec times[] = {{0, UTIME_OMIT}, {1000, 0}};
            (void)utimensat(AT_FDCWD, "tree/log", times, 0);
        }
        return true;
    };
    ASSERT_FALSE(Pack(overwrite));
    EXPECT_EQ(packed_.files[0].note, "it changed while it was packed");
}

TEST_F(PackerTest, AMissingTreeIsEmpty) {
    ASSERT_FALSE(Pack());
    EXPECT_EQ(Listing(ReadArchive("out.tar.zst")), Lines{});
    EXPECT_EQ(LeftOut(), Lines{});
}

TEST_F(PackerTest, ATreeThatIsNoFolderIsLeftOut) {
    WriteFile("tree", "x");
    ASSERT_FALSE(Pack());
    EXPECT_EQ(LeftOut(), Lines{".: Not a directory"});
}

TEST_F(PackerTest, GivesUpInTheMiddleOfAFileAndLeavesNothing) {
    WriteFile("tree/log", std::string(1000000, 'x'));
    const auto error = Pack([](const PackedTree& packed) { return packed.bytes < 300000; });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, ErrorCode::kCancelled);
    EXPECT_TRUE(packed_.files.empty());
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator("."), {}), 1);  // the tree
}

// Bytes that do not compress, so that they reach the disk at once.
std::string Noise(std::size_t size) {
    std::string noise;
    unsigned number = 1;
    while (noise.size() < size) {
        number = number * 1664525U + 1013904223U;
        noise += static_cast<char>(number >> 24U);
    }
    return noise;
}

TEST_F(PackerTest, AFullDiskEndsTheArchiveWithItsCause) {
    WriteFile("tree/log", Noise(1000000));
    std::size_t room = 100000;
    ArchiveWriter archive([&](std::string_view data) -> std::optional<Error> {
        if (data.size() > room) {
            return SystemError(ENOSPC);
        }
        room -= data.size();
        return std::nullopt;
    });
    PackOptions options;
    options.folder = "top";
    options.exclude = [](const struct stat&) { return false; };
    options.goOn = [](const PackedTree&) { return true; };
    // The thread that compresses may be behind: the error comes with the tree or at the end, at the latest.
    const auto early = PackTree("tree", options, archive, packed_);
    EXPECT_TRUE(!early || early->text == "No space left on device");
    const auto late = archive.Close();
    ASSERT_TRUE(late);
    EXPECT_EQ(late->text, "No space left on device");
}

TEST_F(PackerTest, AnErrorAtTheVeryEndIsSeen) {
    ArchiveWriter archive([](std::string_view /*data*/) { return SystemError(ENOSPC); });
    const auto error = archive.Close();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->text, "No space left on device");
}

TEST_F(PackerTest, MarksWhatWasThereBefore) {
    WriteFile("tree/old", "x");
    timespec since{};
    struct stat status {};
    ASSERT_EQ(stat("tree/old", &status), 0);
    since = status.st_ctim;
    since.tv_nsec += 1;
    ArchiveWriter archive([](std::string_view /*data*/) { return std::nullopt; });
    PackOptions options;
    options.since = since;
    options.exclude = [](const struct stat&) { return false; };
    options.goOn = [](const PackedTree&) { return true; };
    ASSERT_FALSE(PackTree("tree", options, archive, packed_));
    EXPECT_TRUE(packed_.files.at(0).older);
    options.since.tv_nsec -= 1;
    ASSERT_FALSE(PackTree("tree", options, archive, packed_));
    EXPECT_FALSE(packed_.files.at(1).older);
}

}  // namespace
