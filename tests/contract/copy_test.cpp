// Copying of a regular file.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "kivo/os_file.h"
#include "kivo/os_thread.h"
#include "platform_control.h"
#include "support/temp_folder.h"

namespace fs = std::filesystem;
using support::Contents;

namespace {

class OsCopyFileTest : public support::ContractTest {
protected:
    std::string File(const std::string& name, const std::string& contents = "contents") const {
        std::ofstream(dir_ / name, std::ios::binary) << contents;
        return dir_ / name;
    }

    static uint32_t Copy(const std::string& src, const std::string& dst) {
        return OsCopyFile(src.c_str(), dst.c_str());
    }

    support::TempFolder dir_;
};

uint32_t Mode(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 ? status.st_mode : 0;
}

/// A socket in the file system.
class SocketFile {
public:
    explicit SocketFile(const std::string& path) : fd_(socket(AF_UNIX, SOCK_STREAM, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        bound_ = bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }
    SocketFile(const SocketFile&) = delete;
    SocketFile& operator=(const SocketFile&) = delete;
    ~SocketFile() { close(fd_); }

    bool Bound() const { return bound_; }

private:
    int fd_;
    bool bound_ = false;
};

constexpr uint32_t kRefused = EINVAL;

}  // namespace

TEST_F(OsCopyFileTest, CopiesContentsIntoANewFile) {
    const std::string contents("text\0with a NUL\n", 16);
    EXPECT_EQ(Copy(File("src", contents), dir_ / "dst"), 0U);
    EXPECT_EQ(Contents(dir_ / "dst"), contents);
    EXPECT_EQ(Contents(dir_ / "src"), contents);
}

TEST_F(OsCopyFileTest, CopiesAnEmptyFile) {
    EXPECT_EQ(Copy(File("src", ""), dir_ / "dst"), 0U);
    EXPECT_TRUE(fs::is_regular_file(dir_ / "dst"));
    EXPECT_EQ(Contents(dir_ / "dst"), "");
}

TEST_F(OsCopyFileTest, CopiesAFileOfManySteps) {
    std::string contents((20U << 20U) + 3, '\0');  // 20 MiB and a bit
    for (size_t i = 0; i < contents.size(); i += 997) {
        contents[i] = static_cast<char>(i / 997);
    }
    EXPECT_EQ(Copy(File("src", contents), dir_ / "dst"), 0U);
    EXPECT_TRUE(Contents(dir_ / "dst") == contents);
}

TEST_F(OsCopyFileTest, CopiesFromAnotherFileSystem) {
    const support::TempFolder memory("/dev/shm");
    std::string contents(300001, '\0');
    for (size_t i = 0; i < contents.size(); ++i) {
        contents[i] = static_cast<char>(i % 251);
    }
    std::ofstream(memory / "src", std::ios::binary) << contents;
    EXPECT_EQ(Copy(memory / "src", dir_ / "dst"), 0U);
    EXPECT_TRUE(Contents(dir_ / "dst") == contents);
}

TEST_F(OsCopyFileTest, CopiesAFileWhoseSizeSaysZero) {
    EXPECT_EQ(Copy("/proc/self/cmdline", dir_ / "dst"), 0U);
    EXPECT_EQ(Contents(dir_ / "dst"), Contents("/proc/self/cmdline"));
    EXPECT_FALSE(Contents(dir_ / "dst").empty());
}

TEST_F(OsCopyFileTest, CopiesAFileThatIsShorterThanItsSizeSays) {
    const std::string shorter = "/sys/kernel/fscaps";  // says 4096
    EXPECT_EQ(Copy(shorter, dir_ / "dst"), 0U);
    EXPECT_EQ(Contents(dir_ / "dst"), Contents(shorter));
}

TEST_F(OsCopyFileTest, KeepsThePermissionBitsWhateverTheUmask) {
    const std::string src = File("src");
    fs::permissions(src, fs::perms{0666});
    const mode_t former = umask(0077);
    const uint32_t result = Copy(src, dir_ / "dst");
    umask(former);
    EXPECT_EQ(result, 0U);
    EXPECT_EQ(Mode(dir_ / "dst"), 0100666U);
}

TEST_F(OsCopyFileTest, GivesAnExistingFileThePermissionBitsOfTheSource) {
    const std::string src = File("src");
    fs::permissions(src, fs::perms{0600});
    const std::string dst = File("dst", "old");
    fs::permissions(dst, fs::perms{0644});
    EXPECT_EQ(Copy(src, dst), 0U);
    EXPECT_EQ(Mode(dst), 0100600U);
}

TEST_F(OsCopyFileTest, CopiesAReadOnlyFile) {
    const std::string src = File("src");
    fs::permissions(src, fs::perms{0444});
    EXPECT_EQ(Copy(src, dir_ / "dst"), 0U);
    EXPECT_EQ(Contents(dir_ / "dst"), "contents");
    EXPECT_EQ(Mode(dir_ / "dst"), 0100444U);
}

TEST_F(OsCopyFileTest, DoesNotMakeACopyThatRunsAsAnotherUser) {
    const std::string src = File("src");
    fs::permissions(src, fs::perms{06755});
    EXPECT_EQ(Copy(src, dir_ / "dst"), 0U);
    EXPECT_EQ(Mode(dir_ / "dst"), 0100755U);
}

TEST_F(OsCopyFileTest, ReplacesAnExistingFileInPlace) {
    const std::string dst = File("dst", "something much longer than the source");
    fs::create_hard_link(dst, dir_ / "other name");
    EXPECT_EQ(Copy(File("src", "short"), dst), 0U);
    EXPECT_EQ(Contents(dst), "short");
    EXPECT_EQ(Contents(dir_ / "other name"), "short");
}

TEST_F(OsCopyFileTest, FollowsALinkAtTheSource) {
    fs::create_symlink(File("real"), dir_ / "link");
    EXPECT_EQ(Copy(dir_ / "link", dir_ / "dst"), 0U);
    EXPECT_EQ(Contents(dir_ / "dst"), "contents");
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(dir_ / "dst")));
}

TEST_F(OsCopyFileTest, RefusesALinkAtTheDestination) {
    const std::string victim = File("victim", "precious");
    fs::create_symlink(victim, dir_ / "link");
    fs::create_symlink("nowhere", dir_ / "dangling");
    EXPECT_EQ(Copy(File("src"), dir_ / "link"), kRefused);
    EXPECT_EQ(Contents(victim), "precious");
    EXPECT_EQ(Copy(File("src"), dir_ / "dangling"), kRefused);
    EXPECT_FALSE(fs::exists(dir_ / "nowhere"));
}

TEST_F(OsCopyFileTest, MissingAndDanglingSourcesCreateNothing) {
    fs::create_symlink("nowhere", dir_ / "dangling");
    EXPECT_EQ(Copy(dir_ / "missing", dir_ / "dst"), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(Copy(dir_ / "dangling", dir_ / "dst"), static_cast<uint32_t>(ENOENT));
    EXPECT_FALSE(fs::exists(dir_ / "dst"));
}

TEST_F(OsCopyFileTest, RefusesWhatIsNoRegularFileAtTheSource) {
    ASSERT_EQ(mkfifo((dir_ / "pipe").c_str(), 0600), 0);
    const SocketFile socket(dir_ / "socket");
    ASSERT_TRUE(socket.Bound());
    for (const std::string& src : {dir_ / "pipe", dir_ / "socket", dir_.Path().string(), std::string("/dev/zero")}) {
        EXPECT_EQ(Copy(src, dir_ / "dst"), kRefused) << src;
        EXPECT_FALSE(fs::exists(dir_ / "dst")) << src;
    }
}

TEST_F(OsCopyFileTest, RefusesWhatIsNoRegularFileAtTheDestination) {
    const std::string src = File("src");
    ASSERT_EQ(mkfifo((dir_ / "pipe").c_str(), 0600), 0);
    const SocketFile socket(dir_ / "socket");
    ASSERT_TRUE(socket.Bound());
    fs::create_directory(dir_ / "sub");
    for (const std::string& dst : {dir_ / "pipe", dir_ / "socket", dir_ / "sub", std::string("/dev/null")}) {
        EXPECT_EQ(Copy(src, dst), kRefused) << dst;
        EXPECT_NE(Mode(dst), 0U) << dst;
    }
}

TEST_F(OsCopyFileTest, UnwritableDestinationGivesItsError) {
    const std::string src = File("src");
    EXPECT_EQ(Copy(src, File("plain") + "/below"), static_cast<uint32_t>(ENOTDIR));
    EXPECT_EQ(Copy(src, dir_ / "missing/dst"), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(Copy(src, dir_ / std::string(300, 'n')), static_cast<uint32_t>(ENAMETOOLONG));
}

TEST_F(OsCopyFileTest, RefusesToCopyAFileOntoItself) {
    const std::string file = File("file");
    fs::create_hard_link(file, dir_ / "second name");
    fs::create_symlink(file, dir_ / "link");
    EXPECT_EQ(Copy(file, file), kRefused);
    EXPECT_EQ(Copy(file, dir_ / "second name"), kRefused);
    EXPECT_EQ(Copy(dir_ / "link", file), kRefused);
    EXPECT_EQ(Contents(file), "contents");
}

TEST_F(OsCopyFileTest, NullPathsAreRefused) {
    const std::string file = File("file");
    EXPECT_EQ(OsCopyFile(nullptr, (dir_ / "dst").c_str()), kRefused);
    EXPECT_EQ(OsCopyFile(file.c_str(), nullptr), kRefused);
    EXPECT_FALSE(fs::exists(dir_ / "dst"));
}
