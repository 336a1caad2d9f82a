// The base of the tests that copy whole trees: what results, what is logged, and that nothing is left open.
#pragma once

#include <algorithm>
#include <filesystem>
#include <string>

#include "ominspect/collect.h"
#include "support/device_folder.h"
#include "support/journal_text.h"

namespace support {

class TreeTest : public DeviceTest {
protected:
    // Collections without a time limit.
    TreeTest() { m_config.running = true; }

    void SetUp() override {
        DeviceTest::SetUp();
        m_openBefore = OpenFiles();
    }

    void TearDown() override {
        EXPECT_EQ(OpenFiles(), m_openBefore) << "a file or directory was left open";
        DeviceTest::TearDown();
    }

    void Copy(const std::string& src, const std::string& dst) {
        InspectCopyDirFile(src.c_str(), dst.c_str(), m_config);
    }

    /// All paths below a folder, sorted, each directory with a slash at its end.
    static Lines Below(const std::string& root) {
        Lines paths;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
            paths.push_back(entry.path().string().substr(root.size() + 1) + (entry.is_directory() ? "/" : ""));
        }
        std::sort(paths.begin(), paths.end());
        return paths;
    }

    /// The log where the order of a directory's entries decides that of the lines.
    static Lines SortedLog() {
        Lines lines = LogLines();
        std::sort(lines.begin(), lines.end());
        return lines;
    }

    CollectConfig m_config;

private:
    static std::ptrdiff_t OpenFiles() {
        const std::filesystem::directory_iterator files("/proc/self/fd");
        return std::distance(begin(files), end(files));
    }

    std::ptrdiff_t m_openBefore = 0;
};

}  // namespace support
