// The service manager's view of the server: this test plays the manager's socket (sd_notify(3)).
#include <fstream>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>

#include "support/eventually.h"
#include "system.h"

namespace support {
namespace {

class Manager {
public:
    explicit Manager(const std::string& path) : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
        EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        const timeval limit{60, 0};
        EXPECT_EQ(setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit), 0);
    }
    ~Manager() { close(fd_); }
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    // Forgets what has come so far.
    void Drain() const {
        char byte = 0;
        while (recv(fd_, &byte, 1, MSG_DONTWAIT) >= 0) {
        }
    }

    // The next message; empty when none comes.
    std::string Next() const {
        char text[512];
        const ssize_t size = recv(fd_, text, sizeof text, 0);
        return size < 0 ? "" : std::string(text, static_cast<size_t>(size));
    }

private:
    int fd_;
};

class Heartbeat : public System {
protected:
    // A setting of the shipped unit file.
    static std::string Setting(const std::string& key) {
        std::ifstream file(UNIT_FILE);
        for (std::string line; std::getline(file, line);) {
            if (line.starts_with(key + "=")) {
                return line.substr(key.size() + 1);
            }
        }
        return {};
    }
};

TEST_F(Heartbeat, TheManagerHearsThatTheServerIsReadyAndThenThatItLives) {
    const Manager manager(Folder() + "/notify");
    const Child server = StartServer(
        false, {"NOTIFY_SOCKET=" + Folder() + "/notify", "WATCHDOG_USEC=" + Setting("WatchdogSec") + "000000"});
    EXPECT_EQ(manager.Next(), "READY=1\nWATCHDOG_USEC=30000000");
    EXPECT_EQ(manager.Next(), "WATCHDOG=1");
    EXPECT_EQ(manager.Next(), "WATCHDOG=1");
}

TEST_F(Heartbeat, AnOwnerTellsTheManagerTheSame) {
    const Manager manager(Folder() + "/notify");
    const Child server = StartServer();
    const Child owner({OMINSPECT_OWNER_PROGRAM, OWNER_FILE}, {"NOTIFY_SOCKET=" + Folder() + "/notify"});
    EXPECT_EQ(manager.Next(), "READY=1\nWATCHDOG_USEC=30000000") << owner.Output();
    EXPECT_EQ(manager.Next(), "WATCHDOG=1");
    EXPECT_EQ(manager.Next(), "WATCHDOG=1");
}

TEST_F(Heartbeat, TheSignsOfLifeGoOnWhileTheBackupWaitsForItsDisk) {
    const WorkingFolder device;
    const std::filesystem::path logs = "device/data/log/wylogs";
    std::filesystem::create_directories(logs);
    const Manager manager(Folder() + "/notify");
    const Child server =
        StartServer(true, {"NOTIFY_SOCKET=" + Folder() + "/notify", "WATCHDOG_USEC=30000000", "LD_PRELOAD=" PRELOAD});
    ASSERT_TRUE(Eventually([this] { return ServerLog().find("create BackupWylogTimer succ") != std::string::npos; }));
    for (const char* log : {"1", "2", "3"}) {
        WriteFile(logs / (std::string("wyapplogcat-log.I") + log), log);
    }
    ASSERT_TRUE(Eventually([] { return std::filesystem::exists("copying"); }));
    manager.Drain();
    EXPECT_EQ(manager.Next(), "WATCHDOG=1");
}

TEST_F(Heartbeat, TheUnitFileAgreesWithWhatTheServerAnnounces) {
    EXPECT_EQ(Setting("Type"), "notify");
    EXPECT_EQ(Setting("WatchdogSec"), "30");
    EXPECT_EQ(Setting("ExecStart"), INSTALLED_PROGRAM);
    EXPECT_EQ(Setting("Restart"), "always");
    EXPECT_EQ(Setting("StartLimitIntervalSec"), "0");
}

TEST_F(Heartbeat, TheLogIsReopenedWhenTheLogServiceRestarts) {
    const Child server = StartServer();
    const Child other = StartOwner("someone", {});
    const std::string log = Folder() + "/inspect.log";
    ASSERT_EQ(rename(log.c_str(), (log + ".old").c_str()), 0);
    const Child omlog = StartOwner("omlog", {});
    EXPECT_TRUE(Eventually([&] {
        RunItem("unknown");
        return ServerLog().find("Get Result fail, name [unknown]") != std::string::npos;
    }));
    const std::string before = Contents(log + ".old");
    EXPECT_NE(before.find("proc restart recv msg id:2097154 from omlog"), std::string::npos);
    EXPECT_EQ(before.find("from someone"), std::string::npos) << "nobody subscribed to that";
}

}  // namespace
}  // namespace support
