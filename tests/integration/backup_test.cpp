// The system-log backup, switched on by a product's hook in a module of its own.
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/child.h"
#include "support/eventually.h"
#include "support/private_bus.h"
#include "support/temp_folder.h"

namespace support {
namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

constexpr const char* kWithHook = "LD_PRELOAD=" PRODUCT_HOOK;

std::string Read(const fs::path& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::string Log(int number) {
    return "wyapplogcat-log.I" + std::to_string(number);
}

// A device in a folder of its own, and the server with short limits on it: a start-up delay and a period of a second.
class Backup : public testing::Test {
protected:
    Backup() { fs::create_directories(source_); }

    // A rotated application log; the higher its number, the younger. It appears whole, with its time.
    void AddLog(const fs::path& folder, int number, const std::string& text = "") const {
        fs::create_directories(folder);
        const fs::path staged = dir_.Path() / "staged";
        std::ofstream(staged) << (text.empty() ? "log " + std::to_string(number) : text);
        // A replaced log is some minutes younger than it was, and still older than the next one.
        const auto time = std::chrono::hours(number) + std::chrono::minutes(text.size());
        fs::last_write_time(staged, fs::file_time_type::clock::now() - std::chrono::hours(1000) + time);
        fs::rename(staged, folder / Log(number));
    }

    [[nodiscard]] Child StartServer(const std::vector<std::string>& environment = {kWithHook}) const {
        std::vector<std::string> all{"KIVO_LOG_DIR=" + dir_.Path().string()};
        all.insert(all.end(), environment.begin(), environment.end());
        return Child({"env", "--chdir=" + dir_.Path().string(), OMINSPECT_PROGRAM, "--library", OMINSPECT_TEST_LIBRARY},
                     all);
    }

    [[nodiscard]] bool EventuallyLogged(const std::string& text) const {
        return Eventually([&] { return Contains(ReadLog(), text); });
    }

    [[nodiscard]] std::string ReadLog() const { return Read(dir_.Path() / "inspect.log"); }

    // The names in the backup, sorted.
    [[nodiscard]] Names BackedUp() const {
        Names names;
        for (const auto& entry : fs::directory_iterator(backup_)) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    support::TempFolder dir_;
    fs::path source_ = dir_.Path() / "device/data/log/wylogs";
    fs::path backup_ = dir_.Path() / "device/data/inspect/diag/log/wylogs";
};

class RunningBackup : public Backup {
protected:
    PrivateBus bus_;
};

TEST_F(RunningBackup, StaysOffWithTheServersOwnHook) {
    for (const int number : {1, 2, 3, 4, 5}) {
        AddLog(source_, number);
    }
    const Child server = StartServer({});
    EXPECT_TRUE(EventuallyLogged("Debug version no need to backup wylog")) << server.Output();
    EXPECT_FALSE(Contains(ReadLog(), "Start init backup wylog"));
    EXPECT_FALSE(fs::exists(backup_));
}

TEST_F(RunningBackup, KeepsUpWithTheSystemLog) {
    for (const int number : {5, 3, 1, 2, 4}) {
        AddLog(source_, number);
    }
    std::ofstream(source_ / "kernel.log") << "no application log";
    Child server = StartServer();
    EXPECT_TRUE(EventuallyLogged("create BackupWylogTimer succ")) << server.Output();
    EXPECT_TRUE(Contains(ReadLog(), "Start init backup wylog"));
    EXPECT_FALSE(Contains(ReadLog(), "Debug version no need to backup wylog"));
    EXPECT_EQ(BackedUp(), (Names{Log(1), Log(2), Log(3)}));
    EXPECT_EQ(Read(backup_ / Log(3)), "log 3");
    EXPECT_EQ(fs::last_write_time(backup_ / Log(3)), fs::last_write_time(source_ / Log(3)));

    // Three more: all but the two newest come with the timer's runs.
    for (const int number : {6, 7, 8}) {
        AddLog(source_, number);
    }
    EXPECT_TRUE(EventuallyLogged("Copy file [wyapplogcat-log.I6] success"));
    EXPECT_TRUE(Eventually([this] { return BackedUp() == Names{Log(1), Log(2), Log(3), Log(4), Log(5), Log(6)}; }));
    EXPECT_EQ(Read(backup_ / Log(6)), "log 6");

    // One that was written to is taken out and copied again.
    AddLog(source_, 2, "log 2 with more");
    EXPECT_TRUE(EventuallyLogged("Remove updated file [wyapplogcat-log.I2]"));
    EXPECT_TRUE(Eventually([this] { return Read(backup_ / Log(2)) == "log 2 with more"; }));
    EXPECT_EQ(BackedUp(), (Names{Log(1), Log(2), Log(3), Log(4), Log(5), Log(6)}));

    server.Signal(SIGTERM);
    EXPECT_EQ(server.Wait(), 0) << server.Output();
}

TEST_F(RunningBackup, KeepsTheNewest150) {
    for (int number = 1; number <= 150; ++number) {
        AddLog(backup_, number);
    }
    for (const int number : {151, 152, 153, 154, 155}) {
        AddLog(source_, number);
    }
    const Child server = StartServer();
    EXPECT_TRUE(EventuallyLogged("create BackupWylogTimer succ")) << server.Output();
    Names expected;
    for (int number = 4; number <= 153; ++number) {
        expected.push_back(Log(number));
    }
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(BackedUp(), expected);
    for (const char* deleted : {"Del file [****t-log.I1]", "Del file [****t-log.I2]", "Del file [****t-log.I3]"}) {
        EXPECT_TRUE(Contains(ReadLog(), deleted)) << deleted;
    }
    EXPECT_FALSE(Contains(ReadLog(), "Del file [****t-log.I4]"));
}

TEST_F(Backup, ACollectionOfTheSystemLogIsAFullRun) {
    AddLog(source_, 1);
    AddLog(source_, 2);
    std::ofstream(source_ / "kernel.log") << "kernel";
    AddLog(backup_, 1, "changed since");
    std::ofstream(backup_ / "stale.log") << "stale";
    const Outcome outcome =
        support::Run({"env", "--chdir=" + dir_.Path().string(), COLLECTOR_SHORT_LIMITS_PROGRAM, "wylogs",
                      "device/data/log/wylogs", "device/data/inspect/diag/log/wylogs", "0"},
                     {kWithHook});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(BackedUp(), (Names{"kernel.log", Log(1), Log(2)}));
    EXPECT_EQ(Read(backup_ / Log(1)), "log 1");
    EXPECT_EQ(Read(backup_ / Log(2)), "log 2");
    EXPECT_EQ(Read(backup_ / "kernel.log"), "kernel");
    std::size_t at = 0;
    for (const char* step :
         {"InspectCopyWylogsFile start", "Remove updated file [wyapplogcat-log.I1]",
          "Copy file [wyapplogcat-log.I1] success", "Copy file [wyapplogcat-log.I2] success",
          "Copy file [kernel.log] success", "create BackupWylogTimer succ", "InspectCopyWylogsFile end"}) {
        at = outcome.output.find(step, at);
        ASSERT_NE(at, std::string::npos) << step << " is missing or out of order in\n" << outcome.output;
    }
}

TEST_F(Backup, TheBoundOf150HoldsWhoeverCollects) {
    for (int number = 1; number <= 150; ++number) {
        AddLog(backup_, number);
    }
    for (int round = 1; round <= 3; ++round) {
        AddLog(source_, 2 * round + 149);
        AddLog(source_, 2 * round + 150);
        const Outcome outcome =
            support::Run({"env", "--chdir=" + dir_.Path().string(), COLLECTOR_SHORT_LIMITS_PROGRAM, "wylogs",
                          "device/data/log/wylogs", "device/data/inspect/diag/log/wylogs", "0"},
                         {kWithHook});
        EXPECT_EQ(outcome.exitCode, 0);
        EXPECT_EQ(BackedUp().size(), 150U);
    }
    EXPECT_TRUE(fs::exists(backup_ / Log(156)));
    EXPECT_FALSE(fs::exists(backup_ / Log(6)));
}

// The shipped server on its true paths, which are kept away from the machine.
TEST_F(Backup, TheShippedServerAsksTheProductsHook) {
    AddLog(source_, 1);
    const fs::path copy = dir_.Path() / "copy";
    const std::vector<std::string> command{COLLECTOR_PROGRAM, "wylogs", source_, copy, "5"};
    const Outcome hooked = support::Run(command, {std::string(kWithHook) + ":" NO_DEVICE});
    EXPECT_TRUE(Contains(hooked.output, "InspectCopyWylogsFile start")) << hooked.output;
    EXPECT_TRUE(Contains(hooked.output, "Fail to create dir: /data/inspect/diag/log/wylogs")) << hooked.output;
    EXPECT_FALSE(fs::exists(copy));

    const Outcome plain = support::Run(command);
    EXPECT_TRUE(Contains(plain.output, "InspectCopyWylogsFile start")) << plain.output;
    EXPECT_FALSE(Contains(plain.output, "Fail to create dir")) << plain.output;
    EXPECT_EQ(Read(copy / Log(1)), "log 1");
}

}  // namespace
}  // namespace support
