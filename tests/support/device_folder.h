// A device of the test's own: the sources under test put "device" before the device's absolute paths, and that is a
// folder below the working directory.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "support/platform_test.h"

namespace support {

/// Runs each test in an empty working directory, which is removed at its end.
class DeviceTest : public PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        std::string path = testing::TempDir() + "/inspect-device-XXXXXX";
        ASSERT_NE(mkdtemp(path.data()), nullptr);
        m_before = std::filesystem::current_path();
        m_folder = path;
        std::filesystem::current_path(m_folder);
    }

    void TearDown() override {
        PlatformTest::TearDown();
        std::filesystem::current_path(m_before);
        std::filesystem::remove_all(m_folder);
    }

    /// Writes a file and makes its folders.
    static void Write(const std::string& path, const std::string& text) {
        const auto parent = std::filesystem::path(path).parent_path();
        if (!parent.empty()) {
            std::filesystem::create_directories(parent);
        }
        std::ofstream(path) << text;
    }

    /// The text of a file; "(none)" when there is none.
    static std::string Read(const std::string& path) {
        const std::ifstream file(path);
        std::ostringstream text;
        text << file.rdbuf();
        return file ? text.str() : "(none)";
    }

    std::filesystem::path m_folder;

private:
    std::filesystem::path m_before;
};

}  // namespace support
