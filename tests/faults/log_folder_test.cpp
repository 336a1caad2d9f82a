// The folder of the operations log: not writable, deleted, on a full disk. The log is lost, or goes to standard error;
// the server goes on.
#include <csignal>
#include <filesystem>

#include "faults.h"
#include "support/own_root.h"
#include "support/small_disk.h"

namespace support {
namespace {

namespace fs = std::filesystem;

class LogFolder : public Faults {
protected:
    static void SetUpTestSuite() { BecomeOwnRoot(); }

    void StartAll(const std::string& folder) { Faults::StartAll(false, {"KIVO_LOG_DIR=" + folder}); }

    static bool Holds(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

    // Runs an item that nobody has, until its name stands in a text.
    static bool EventuallyTold(const std::string& item, const std::function<std::string()>& text) {
        return Eventually([&] {
            EXPECT_EQ(Text(RunItem(item)), item + " fail/no support");
            return Holds(text(), "Get Result fail, name [" + item + "]");
        });
    }

    static std::string LogIn(const std::string& folder) { return Contents(folder + "/inspect.log"); }
};

TEST_F(LogFolder, ThatMayNotBeWrittenToSendsTheLogToStandardError) {
    const SmallDisk disk;
    disk.SetReadOnly(true);
    StartAll(disk.Path() + "/log");
    EXPECT_TRUE(EventuallyTold("one", [this] { return Server().Output(); }));
    ExpectNothingStays();
    Server().Signal(SIGTERM);
    EXPECT_EQ(Server().Wait(), 0);
}

TEST_F(LogFolder, ThatIsAFileSendsTheLogToStandardError) {
    WriteFile(Folder() + "/log", "a file");
    StartAll(Folder() + "/log");
    EXPECT_TRUE(EventuallyTold("one", [this] { return Server().Output(); }));
    EXPECT_EQ(Contents(Folder() + "/log"), "a file");
    ExpectNothingStays();
}

TEST_F(LogFolder, ThatIsDeletedIsMadeAnew) {
    const std::string folder = Folder() + "/log";
    StartAll(folder);
    for (const std::string item : {"one", "two"}) {
        fs::remove_all(folder);
        EXPECT_TRUE(EventuallyTold(item, [&] { return LogIn(folder); }));
    }
    ExpectNothingStays();
}

// Also without room for a folder that is made anew.
TEST_F(LogFolder, OnAFullDiskSendsTheLogToStandardErrorUntilThereIsRoom) {
    const SmallDisk disk;
    const std::string folder = disk.Path() + "/log";
    StartAll(folder);
    EXPECT_TRUE(EventuallyTold("before", [&] { return LogIn(folder); }));
    disk.Fill();
    EXPECT_TRUE(EventuallyTold("full", [this] { return Server().Output(); }));
    EXPECT_TRUE(Holds(Server().Output(), "cannot write " + folder + "/inspect.log: ")) << Server().Output();
    disk.Empty();
    EXPECT_TRUE(EventuallyTold("after", [&] { return LogIn(folder); }));
    ExpectNothingStays();
}

}  // namespace
}  // namespace support
