// One copy function in its process: what comes back from it, and how it ends.
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <string>

#include <unistd.h>

#include "collect/copy_process.h"
#include "common/fd.h"
#include "kivo/om_log_client.h"
#include "support/temp_folder.h"

using namespace ominspect;
using namespace ominspect::collect;
using support::WriteFile;
using Lines = std::vector<std::string>;

namespace {

class CopyProcessTest : public testing::Test {
protected:
    // Starts this function as the copy of "source" to "copy", and waits for its end.
    CopyProcess& RunToEnd(InspectCopyFunction copy, std::uint32_t limit = 7) {
        CopyProcess& process = Start(copy, limit);
        while (process.Watch(-1, -1)) {
        }
        return process;
    }

    CopyProcess& Start(InspectCopyFunction copy, std::uint32_t limit = 7) {
        rules_.area = work_.Path();
        auto started = CopyProcess::Start({work_ / "source", work_ / "copy", limit, copy}, rules_);
        EXPECT_TRUE(started);
        process_ = std::move(*started);
        return *process_;
    }

    const support::WorkingFolder work_;
    CopyRules rules_;
    std::unique_ptr<CopyProcess> process_;
};

TEST_F(CopyProcessTest, CountsFilesAndBytes) {
    WriteFile("source/a", "12345");
    WriteFile("source/b", "678");
    CopyProcess& process = RunToEnd(InspectCopyDirFile);
    EXPECT_EQ(process.Files(), 2U);
    EXPECT_EQ(process.Bytes(), 8U);
    EXPECT_EQ(process.Failures().count, 0U);
    EXPECT_FALSE(process.WasEndedEarly());
    EXPECT_EQ(process.Death(), "");
}

TEST_F(CopyProcessTest, LeavesNoSharedMemoryBehind) {
    const auto mappings = [] {
        const std::string all = support::Contents("/proc/self/maps");
        std::size_t count = 0;
        for (std::size_t at = 0; (at = all.find(" rw-s ", at)) != std::string::npos; ++at) {
            ++count;
        }
        return count;
    };
    const std::size_t before = mappings();
    RunToEnd([](const char*, const char*, CollectConfig&) {});
    EXPECT_GT(mappings(), before);
    process_.reset();
    EXPECT_EQ(mappings(), before);
}

// The copy functions' own timer stays off: a copy would wait for its last second.
TEST_F(CopyProcessTest, KeepsTheTimeItself) {
    const auto print = [](const char*, const char*, CollectConfig& config) {
        (void)std::fprintf(stderr, "%u %d %d\n", config.timeout, config.startTimer ? 1 : 0, config.running ? 1 : 0);
    };
    EXPECT_EQ(RunToEnd(print).Messages().list, (Lines{"7 0 1"}));
    EXPECT_EQ(RunToEnd(print, 0).Messages().list, (Lines{"0 0 0"})) << "over at once";
}

TEST_F(CopyProcessTest, TakesInLinesUpToWarningsAndWhatToolsPrint) {
    CopyProcess& process = RunToEnd([](const char*, const char*, CollectConfig&) {
        KivoOmLogModuleLogRecord(KIVO_OM_LOG_WARNING, 0, "unit", 0, 0, "a %s", "warning");
        KivoOmLogModuleLogRecord(KIVO_OM_LOG_WARNING + 1, 0, "unit", 0, 0, "less than that");
        (void)std::fprintf(stderr, "first\nno line end");
    });
    Lines lines = process.Messages().list;
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ(lines, (Lines{"a warning", "first", "no line end"}));
}

TEST_F(CopyProcessTest, TakesInASingleByte) {
    CopyProcess& process = RunToEnd([](const char*, const char*, CollectConfig&) { (void)std::fputc('x', stderr); });
    EXPECT_EQ(process.Messages().list, (Lines{"x"}));
}

TEST_F(CopyProcessTest, ALineThatComesInPiecesIsOne) {
    CopyProcess& process = Start([](const char*, const char*, CollectConfig& config) {
        (void)std::fputs("first", stderr);
        while (config.running) {
            (void)usleep(1000);
        }
        (void)std::fputs(" and second\n", stderr);
    });
    EXPECT_TRUE(process.Watch(-1, -1));
    process.Stop();
    while (process.Watch(-1, -1)) {
    }
    EXPECT_EQ(process.Messages().list, (Lines{"first and second"}));
}

TEST_F(CopyProcessTest, TakesInFailuresThatComeOneByOne) {
    CopyProcess& process = Start([](const char* src, const char* dst, CollectConfig& config) {
        InspectCopyFile((std::string(src) + "-1").c_str(), dst, config);
        while (config.running) {
            (void)usleep(1000);
        }
        InspectCopyFile((std::string(src) + "-2").c_str(), dst, config);
    });
    while (process.Failures().count == 0 && process.Watch(-1, -1)) {
    }
    process.Stop();
    while (process.Watch(-1, -1)) {
    }
    Lines paths;
    for (const Failure& failure : process.Failures().list) {
        paths.push_back(failure.path);
    }
    EXPECT_EQ(paths, (Lines{work_ / "source-1", work_ / "source-2"}));
}

// It is longer than what a pipe holds.
TEST_F(CopyProcessTest, CutsALineThatGoesOn) {
    CopyProcess& process = RunToEnd([](const char*, const char*, CollectConfig&) {
        (void)std::fprintf(stderr, "%s\nnext\n", std::string(200000, 'x').c_str());
    });
    EXPECT_EQ(process.Messages().list, (Lines{std::string(1000, 'x'), "next"}));
}

TEST_F(CopyProcessTest, EndsWhenItIsTold) {
    CopyProcess& process = Start([](const char*, const char*, CollectConfig& config) {
        while (config.running) {
            (void)usleep(1000);
        }
        KivoOmLogModuleLogRecord(KIVO_OM_LOG_WARNING, 0, "unit", 0, 0, "collection stopped by timer, x");
    });
    process.Stop();
    while (process.Watch(-1, -1)) {
    }
    EXPECT_TRUE(process.WasEndedEarly());
    EXPECT_EQ(process.Death(), "");
}

TEST_F(CopyProcessTest, SaysHowItDied) {
    EXPECT_EQ(RunToEnd([](const char*, const char*, CollectConfig&) { (void)raise(SIGKILL); }).Death(),
              "its process was ended by Killed");
    EXPECT_EQ(RunToEnd([](const char*, const char*, CollectConfig&) { throw std::bad_alloc(); }).Death(),
              "its process ran out of memory");
}

TEST_F(CopyProcessTest, IsEndedWhereItIs) {
    CopyProcess& process = Start([](const char*, const char*, CollectConfig&) {
        for (;;) {
            (void)pause();
        }
    });
    process.Kill();
    while (process.Watch(-1, -1)) {
    }
    EXPECT_EQ(process.Death(), "its process was ended by Killed");
    EXPECT_EQ(process.Current(), "");
}

TEST_F(CopyProcessTest, AWatchEndsWhenTheOtherDescriptorIsReadable) {
    const auto pipe = MakePipe();
    ASSERT_TRUE(pipe);
    ASSERT_FALSE(WriteAll(pipe->write.Get(), "x"));
    CopyProcess& process = Start([](const char*, const char*, CollectConfig&) {
        for (;;) {
            (void)pause();
        }
    });
    EXPECT_TRUE(process.Watch(pipe->read.Get(), -1));
}

}  // namespace
