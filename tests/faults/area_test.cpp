// Where logs are collected from and to: a source that hangs, an area that is full, read-only, or a link.
#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <memory>

#include "faults.h"
#include "support/own_root.h"
#include "support/small_disk.h"

namespace support {
namespace {

namespace fs = std::filesystem;

// A file system whose server never answers, as one whose network has gone: whoever looks into it waits.
class HangingMount {
public:
    explicit HangingMount(std::string path) : path_(std::move(path)), server_(open("/dev/fuse", O_RDWR | O_CLOEXEC)) {
        fs::create_directories(path_);
        const std::string options = "fd=" + std::to_string(server_) + ",rootmode=40000,user_id=0,group_id=0";
        EXPECT_EQ(mount("hang", path_.c_str(), "fuse", 0, options.c_str()), 0) << std::strerror(errno);
    }
    ~HangingMount() {
        EXPECT_EQ(umount2(path_.c_str(), MNT_DETACH), 0) << std::strerror(errno);
        close(server_);
    }
    HangingMount(const HangingMount&) = delete;
    HangingMount& operator=(const HangingMount&) = delete;

private:
    std::string path_;
    int server_;
};

class Area : public testing::Test {
protected:
    static void SetUpTestSuite() { BecomeOwnRoot(); }

    Area() { WriteFile(folder_ / "good/log", "a line"); }

    [[nodiscard]] Child Collect(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {OMINSPECTCTL_PROGRAM, "collect"});
        arguments.insert(arguments.end(), {"--output", folder_ / "p.tar.zst"});
        return Child(arguments, {"TMPDIR=" + folder_.Path().string()});
    }

    [[nodiscard]] bool HasPackage() const { return fs::exists(folder_ / "p.tar.zst"); }

    static bool Holds(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

    const TempFolder folder_;
};

// One on a disk of its own; the system-log backup, which the server itself keeps, below it.
class BackupOnASmallDisk : public System {
protected:
    static void SetUpTestSuite() { BecomeOwnRoot(); }

    void AddLogs(int first, int count) const {
        for (int i = first; i < first + count; ++i) {
            WriteFile(disk_.Path() + "/device/data/log/wylogs/wyapplogcat-log.I" + std::to_string(i),
                      std::string(100, 'l'));
        }
    }

    [[nodiscard]] Child StartOnTheDisk() const {
        Child server({"env", "--chdir=" + disk_.Path(), OMINSPECT_PROGRAM, "--library", OMINSPECT_TEST_LIBRARY},
                     {"KIVO_LOG_DIR=" + Folder(), "LD_PRELOAD=" PRODUCT_HOOK});
        EXPECT_TRUE(Eventually([] { return Send(7, "").code == 0; })) << server.Output();
        return server;
    }

    [[nodiscard]] bool IsBackedUp(int number) const {
        return Contents(disk_.Path() + "/device/data/inspect/diag/log/wylogs/wyapplogcat-log.I" +
                        std::to_string(number)) == std::string(100, 'l');
    }

    // As the kernel tells: its thread sleeps, and only what it waits for, or the end of the process, wakes it.
    static bool BackupWaitsForItsDisk(const Child& server) {
        const fs::directory_iterator threads("/proc/" + std::to_string(server.Pid()) + "/task");
        return std::any_of(begin(threads), end(threads), [](const fs::directory_entry& thread) {
            return Contents(thread.path() / "comm") == "wylog_backup\n" &&
                   StatusLine(std::stoi(thread.path().filename()), "State").starts_with('D');
        });
    }

    const SmallDisk disk_;
};

}  // namespace

TEST_F(Area, ASourceThatHangsIsGivenUpAndTheOthersAreCollected) {
    const HangingMount mount(folder_ / "hanging");
    Child collect = Collect({folder_ / "hanging", folder_ / "good", "--timeout", "1"});
    EXPECT_EQ(collect.Wait(std::chrono::seconds(30)), 1) << collect.Output();
    EXPECT_TRUE(HasPackage());
    EXPECT_TRUE(Holds(collect.Output(), "failed: the source does not answer")) << collect.Output();
    EXPECT_TRUE(Holds(collect.Output(), "good: 1 file, 6 B, ")) << collect.Output();
}

// Itself, and what lies below it.
TEST_F(Area, ThatHangsIsGivenUpAndLeavesNoPackage) {
    const HangingMount mount(folder_ / "hanging");
    for (const std::string area : {"hanging", "hanging/area"}) {
        Child collect = Collect({folder_ / "good", "--area", folder_ / area});
        EXPECT_EQ(collect.Wait(), 1) << collect.Output();
        EXPECT_TRUE(Holds(collect.Output(), "the area " + folder_ / area + " does not answer\n")) << collect.Output();
        EXPECT_FALSE(HasPackage());
    }
}

TEST_F(Area, ThatIsFullSaysSoAndLeavesNoPackage) {
    const SmallDisk disk;
    disk.Fill();
    Child collect = Collect({folder_ / "good", "--area", disk.Path() + "/area"});
    EXPECT_EQ(collect.Wait(), 1);
    EXPECT_FALSE(HasPackage());
    EXPECT_TRUE(Holds(collect.Output(), "not enough room in ")) << collect.Output();
    disk.Empty();
    Child again = Collect({folder_ / "good", "--area", disk.Path() + "/area"});
    EXPECT_EQ(again.Wait(), 0) << again.Output();
}

TEST_F(Area, ThatIsReadOnlyGivesAPackageThatSaysWhatIsMissing) {
    const SmallDisk disk;
    disk.SetReadOnly(true);
    Child collect = Collect({folder_ / "good", "--area", disk.Path() + "/area"});
    EXPECT_EQ(collect.Wait(), 1);
    EXPECT_TRUE(HasPackage());
    EXPECT_TRUE(Holds(collect.Output(), "incomplete: 1 path not copied")) << collect.Output();
}

// Neither one that an entry is to be copied to nor one on the way there.
TEST_F(Area, ThatIsALinkIsNotWrittenThrough) {
    const std::string area = folder_ / "area";
    WriteFile(folder_ / "elsewhere/kept", "kept");
    fs::create_directory(area);
    fs::create_directory_symlink(folder_ / "elsewhere", area + "/link");
    std::string entries;
    for (const std::string place : {"/link", "/link/below", "/own"}) {
        entries +=
            "<Log srcPath='" + folder_ / "good" + "' dstPath='" + area + place + "' timeout='5' isFolder='true'/>";
    }
    WriteFile(folder_ / "c.xml", "<c><LogCollect>" + entries + "</LogCollect></c>");
    Child collect = Collect({"--config", folder_ / "c.xml", "--area", area});
    EXPECT_EQ(collect.Wait(), 1);
    for (const std::string place : {"/link", "/link/below"}) {
        EXPECT_TRUE(
            Holds(collect.Output(), "refused: the destination " + area + place + " is outside the area " + area + '\n'))
            << collect.Output();
    }
    EXPECT_EQ(Contents(area + "/own/log"), "a line");
    EXPECT_EQ(Contents(folder_ / "elsewhere/kept"), "kept");
    EXPECT_EQ(std::distance(fs::directory_iterator(folder_ / "elsewhere"), fs::directory_iterator()), 1)
        << collect.Output();
}

TEST_F(BackupOnASmallDisk, ThatIsFullIsTriedAgainAndHoldsUpNoRun) {
    AddLogs(1, 5);
    disk_.Fill();
    Child server = StartOnTheDisk();
    const Child owner = StartOwner("owner1", {"ok"});
    ASSERT_TRUE(Eventually([this] { return ServerLog().find("create BackupWylogTimer succ") != std::string::npos; }));
    EXPECT_EQ(Text(RunItem("ok")), "ok success/answered by owner1");
    EXPECT_FALSE(IsBackedUp(1));
    disk_.Empty();
    AddLogs(6, 5);
    EXPECT_TRUE(Eventually([this] { return IsBackedUp(6); })) << ServerLog();
    EXPECT_EQ(Text(RunItem("ok")), "ok success/answered by owner1");
    server.Signal(SIGTERM);
    EXPECT_EQ(server.Wait(), 0);
}

// The server gives the backup up until it starts again.
TEST_F(BackupOnASmallDisk, ThatIsReadOnlyIsGivenUpAndHoldsUpNoRun) {
    AddLogs(1, 5);
    disk_.SetReadOnly(true);
    Child server = StartOnTheDisk();
    const Child owner = StartOwner("owner1", {"ok"});
    ASSERT_TRUE(Eventually([this] { return ServerLog().find("Fail to create dir") != std::string::npos; }));
    EXPECT_EQ(Text(RunItem("ok")), "ok success/answered by owner1");
    disk_.SetReadOnly(false);
    server.Signal(SIGTERM);
    EXPECT_EQ(server.Wait(), 0);
    const Child again = StartOnTheDisk();
    EXPECT_TRUE(Eventually([this] { return IsBackedUp(1); })) << ServerLog();
}

// The thread of the backup waits for the disk, and nobody waits for that thread.
TEST_F(BackupOnASmallDisk, ThatHangsHoldsUpNeitherRunsNorTheEndAndGoesOnWithTheDisk) {
    AddLogs(1, 5);
    auto mount = std::make_unique<HangingMount>(disk_.Path() + "/device/data/inspect/diag");
    Child server = StartOnTheDisk();
    const Child owner = StartOwner("owner1", {"ok"});
    ASSERT_TRUE(Eventually([&] { return BackupWaitsForItsDisk(server); })) << ServerLog();
    EXPECT_EQ(Text(RunItem("ok")), "ok success/answered by owner1");
    server.Signal(SIGTERM);
    EXPECT_EQ(server.Wait(), 0) << server.Output();
    const Child again = StartOnTheDisk();
    ASSERT_TRUE(Eventually([&] { return BackupWaitsForItsDisk(again); })) << ServerLog();
    mount.reset();
    EXPECT_TRUE(Eventually([this] { return IsBackedUp(1); })) << ServerLog();
}

}  // namespace support
