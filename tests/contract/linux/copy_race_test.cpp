// Copying a file that changes meanwhile, and one that does not fit.
#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "kivo/os_file.h"
#include "linux/file_size_limit.h"
#include "support/temp_folder.h"

namespace fs = std::filesystem;
using support::Contents;

namespace {

// A file that grows when the kernel is asked to copy, which it then does not do.
std::string g_growing;

}  // namespace

// The program's own function comes before the C library's.
extern "C" __attribute__((visibility("default"))) ssize_t copy_file_range(int in, off64_t* inOffset, int out,
                                                                          off64_t* outOffset, size_t length,
                                                                          unsigned flags) {
    if (!g_growing.empty()) {
        std::ofstream(g_growing, std::ios::app) << "more";
        errno = EXDEV;
        return -1;
    }
    static const auto real = reinterpret_cast<decltype(&copy_file_range)>(dlsym(RTLD_NEXT, "copy_file_range"));
    return real(in, inOffset, out, outOffset, length, flags);
}

TEST(OsCopyFileRace, WhatIsAppendedAfterTheBeginningIsLeftToTheNextCopy) {
    const support::TempFolder dir;
    const std::string source = dir / "src";
    std::ofstream(source) << "first";
    g_growing = source;
    EXPECT_EQ(OsCopyFile(source.c_str(), (dir / "dst").c_str()), 0U);
    g_growing.clear();
    EXPECT_EQ(Contents(source), "firstmore");
    EXPECT_EQ(Contents(dir / "dst"), "first");
}

TEST(OsCopyFileRace, AFileThatGrowsAllTheTimeIsCopiedUpToSomeSizeItHad) {
    const support::TempFolder dir;
    std::ofstream source(dir / "src", std::ios::binary);
    source << std::string(100000, 'x') << std::flush;
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        for (int i = 0; i < 4000 && !stop; ++i) {  // 20 MB at most
            source << std::string(5000, 'x') << std::flush;
        }
    });
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(OsCopyFile((dir / "src").c_str(), (dir / "dst").c_str()), 0U);
        const std::string copy = Contents(dir / "dst");
        EXPECT_GE(copy.size(), 100000U);
        EXPECT_EQ(copy.find_first_not_of('x'), std::string::npos);
    }
    stop = true;
    writer.join();
    EXPECT_GE(fs::file_size(dir / "src"), fs::file_size(dir / "dst"));
}

TEST(OsCopyFileRace, AFileThatShrinksMeanwhileIsCopiedWithoutAnError) {
    const support::TempFolder dir;
    const std::string source = dir / "src";
    std::atomic<bool> stop{false};
    std::ofstream(source) << std::string(300000, 'x');
    std::thread writer([&] {
        while (!stop) {
            fs::resize_file(source, 10);
            fs::resize_file(source, 300000);
        }
    });
    for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(OsCopyFile(source.c_str(), (dir / "dst").c_str()), 0U);
        EXPECT_LE(fs::file_size(dir / "dst"), 300000U);
    }
    stop = true;
    writer.join();
}

TEST(OsCopyFileLimit, AFailureRemovesAFileThatTheCallCreated) {
    const support::TempFolder dir;
    std::ofstream(dir / "src") << std::string(300000, 'x');
    const support::FileSizeLimit limit(100000);
    EXPECT_EQ(OsCopyFile((dir / "src").c_str(), (dir / "dst").c_str()), static_cast<uint32_t>(EFBIG));
    EXPECT_FALSE(fs::exists(dir / "dst"));
}

TEST(OsCopyFileLimit, AFailureKeepsAFileThatWasThereBefore) {
    const support::TempFolder dir;
    std::ofstream(dir / "src") << std::string(300000, 'x');
    std::ofstream(dir / "dst") << "old";
    const support::FileSizeLimit limit(100000);
    EXPECT_EQ(OsCopyFile((dir / "src").c_str(), (dir / "dst").c_str()), static_cast<uint32_t>(EFBIG));
    EXPECT_TRUE(fs::exists(dir / "dst"));
}
