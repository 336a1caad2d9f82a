// Copying and removing step by step: what is done before what, and in which entry a directory ends.
//
// The program is linked so that the file calls of the server pass through here. A directory gives "." and ".." first
// and then its other entries by name, whatever the file system's own order is.
#include <dirent.h>

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "collect/file_ops.h"
#include "kivo/os_file.h"
#include "ominspect/collect.h"
#include "support/device_folder.h"
#include "support/journal_text.h"

using support::Lines;
using support::LogLines;
namespace fs = std::filesystem;

namespace {

// Told of each call, as "OsCopyFile source": OsAccess after it is done, the others before.
std::function<void(const std::string& call)> g_onCall;

void Tell(const char* function, const std::string& path) {
    if (g_onCall) {
        g_onCall(std::string(function) + " " + path);
    }
}

// What stands for the platform's handle: a directory that was read whole when it was opened.
struct Listing {
    std::string path;
    std::vector<dirent> entries;
    std::size_t next = 0;
};

Listing* ListingOf(OsDir* dir) {
    return reinterpret_cast<Listing*>(dir);
}

}  // namespace

extern "C" {

decltype(OsAccess) __real_OsAccess;
decltype(OsCloseDir) __real_OsCloseDir;
decltype(OsCopyFile) __real_OsCopyFile;
decltype(OsMkDir) __real_OsMkDir;
decltype(OsOpenDir) __real_OsOpenDir;
decltype(OsReadDir) __real_OsReadDir;

uint32_t __wrap_OsAccess(const char* path, int mode) {
    const uint32_t result = __real_OsAccess(path, mode);
    Tell("OsAccess", path);
    return result;
}

uint32_t __wrap_OsCopyFile(const char* src, const char* dst) {
    Tell("OsCopyFile", src);
    return __real_OsCopyFile(src, dst);
}

uint32_t __wrap_OsMkDir(const char* path, uint32_t mode) {
    Tell("OsMkDir", path);
    return __real_OsMkDir(path, mode);
}

OsDir* __wrap_OsOpenDir(const char* path) {
    Tell("OsOpenDir", path);
    OsDir* const real = __real_OsOpenDir(path);
    if (real == nullptr) {
        return nullptr;
    }
    auto* const listing = new Listing{path, {}};
    while (const dirent* entry = __real_OsReadDir(real)) {
        listing->entries.push_back(*entry);
    }
    (void)__real_OsCloseDir(real);
    std::ranges::sort(listing->entries, [](const dirent& a, const dirent& b) {
        const std::string_view first = a.d_name;
        const std::string_view second = b.d_name;
        return IsDotEntry(a.d_name) != IsDotEntry(b.d_name) ? IsDotEntry(a.d_name) : first < second;
    });
    return reinterpret_cast<OsDir*>(listing);
}

dirent* __wrap_OsReadDir(OsDir* dir) {
    Listing* const listing = ListingOf(dir);
    Tell("OsReadDir", listing->path);
    return listing->next == listing->entries.size() ? nullptr : &listing->entries[listing->next++];
}

uint32_t __wrap_OsCloseDir(OsDir* dir) {
    delete ListingOf(dir);
    return 0;
}
}

namespace {

class CollectCallsTest : public support::DeviceTest {
protected:
    CollectCallsTest() { m_config.running = true; }

    void TearDown() override {
        g_onCall = nullptr;
        DeviceTest::TearDown();
    }

    // As of a time limit that passes while this file is copied.
    void StopDuringCopyOf(const std::string& path) {
        g_onCall = [this, path](const std::string& call) {
            if (call == "OsCopyFile " + path) {
                m_config.running = false;
            }
        };
    }

    CollectConfig m_config;
};

TEST_F(CollectCallsTest, TheTimerIsStartedOnceTheSourceIsOpenAndBeforeItsFirstEntryIsRead) {
    Write("source/a", "A");
    m_config.startTimer = true;
    m_config.timeout = 0;  // the timer ends at once
    Lines steps;
    g_onCall = [&](const std::string& call) {
        if (call != "OsAccess copy") {
            steps.push_back(call + (m_config.startTimer ? ": not started" : ": started"));
        }
    };
    InspectCopyDirFile("source", "copy", m_config);
    ASSERT_GE(steps.size(), 3U);
    EXPECT_EQ(Lines(steps.begin(), steps.begin() + 3),
              (Lines{"OsMkDir copy: not started", "OsOpenDir source: not started", "OsReadDir source: started"}));
}

TEST_F(CollectCallsTest, WithoutADestinationOrASourceTheTimerIsNotStarted) {
    Write("source/a", "A");
    Write("file", "in the way");
    m_config.startTimer = true;
    InspectCopyDirFile("source", "file/copy", m_config);
    InspectCopyDirFile("missing", "copy", m_config);
    EXPECT_EQ(LogLines(), (Lines{"1 InspectFile 15: Mkdir fail!", "1 InspectFile 15: open dir fail!"}));
    EXPECT_TRUE(m_config.startTimer);
    EXPECT_TRUE(m_config.running);
}

TEST_F(CollectCallsTest, ATimeOutIsToldByTheLevelThatStillHasEntries) {
    Write("the_source/sub/last", "L");
    Write("the_source/too_late", "T");
    StopDuringCopyOf("the_source/sub/last");
    InspectCopyDirFile("the_source", "the_copy_of_it", m_config);
    EXPECT_EQ(Read("the_copy_of_it/sub/last"), "L");
    EXPECT_FALSE(fs::exists("the_copy_of_it/too_late"));
    EXPECT_EQ(LogLines(),
              Lines{"1 InspectFile 15: collection stopped by timer, [****e_source]->[****py_of_it] timeout."});
}

TEST_F(CollectCallsTest, ATimeOutIsToldByEachLevelThatStillHasEntries) {
    Write("the_source/sub/copied", "C");
    Write("the_source/sub/too_late", "T");
    Write("the_source/too_late", "T");
    StopDuringCopyOf("the_source/sub/copied");
    InspectCopyDirFile("the_source", "the_copy_of_it", m_config);
    EXPECT_EQ(LogLines(),
              (Lines{"1 InspectFile 15: collection stopped by timer, [****urce/sub]->[****f_it/sub] timeout.",
                     "1 InspectFile 15: collection stopped by timer, [****e_source]->[****py_of_it] timeout."}));
}

TEST_F(CollectCallsTest, ATimeOutDuringTheLastFileIsNotTold) {
    Write("the_source/sub/last", "L");
    StopDuringCopyOf("the_source/sub/last");
    InspectCopyDirFile("the_source", "the_copy_of_it", m_config);
    EXPECT_EQ(Read("the_copy_of_it/sub/last"), "L");
    EXPECT_EQ(LogLines(), Lines{});
}

TEST_F(CollectCallsTest, AnEntryWhosePathDoesNotFitEndsTheCopy) {
    const std::string folder(60, 'x');
    Write("source/a", "A");
    Write("source/" + std::string(200, 'n'), "N");
    Write("source/z", "Z");
    InspectCopyDirFile("source", folder.c_str(), m_config);
    EXPECT_TRUE(fs::exists(folder + "/a"));
    EXPECT_FALSE(fs::exists(folder + "/z"));
    EXPECT_EQ(LogLines(), Lines{});
}

TEST_F(CollectCallsTest, AnEntryWhosePathDoesNotFitEndsTheRemoval) {
    const std::string folder(60, 'x');
    for (const std::string& name : {std::string("a"), std::string(200, 'n'), std::string("z")}) {
        Write(folder + "/" + name, name);
    }
    EXPECT_NE(InspectRemovePath(folder.c_str()), 0);
    EXPECT_FALSE(fs::exists(folder + "/a"));
    EXPECT_TRUE(fs::exists(folder + "/z"));
    EXPECT_EQ(LogLines(), Lines{});
}

TEST_F(CollectCallsTest, TheRemovalGoesOnBehindTheDotEntries) {
    Write("folder/a", "A");
    Write("folder/b", "B");
    EXPECT_EQ(InspectRemovePath("folder"), 0);
    EXPECT_FALSE(fs::exists("folder"));
}

TEST_F(CollectCallsTest, AFileThatGoesWhileItIsToBeRemovedHasNoStatus) {
    Write("file", "F");
    g_onCall = [](const std::string& call) {
        if (call == "OsAccess file") {
            fs::remove("file");
        }
    };
    EXPECT_EQ(InspectRemovePath("file"), 1);
    EXPECT_EQ(LogLines(), Lines{"1 InspectFile 15: get dir stat error!"});
}

}  // namespace
