// An empty working folder for each test.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace probe {

// Makes it the current folder; removed at the end of the test.
class InWorkFolder : public testing::Test {
protected:
    void SetUp() override {
        std::string path = testing::TempDir() + "/collect-test-XXXXXX";
        ASSERT_NE(mkdtemp(path.data()), nullptr);
        before_ = std::filesystem::current_path();
        folder_ = std::filesystem::canonical(path).string();
        std::filesystem::current_path(folder_);
    }

    void TearDown() override {
        std::filesystem::current_path(before_);
        std::filesystem::remove_all(folder_);
    }

    // Writes a file below the folder and makes its parents.
    void Write(const std::string& name, const std::string& text) const {
        const std::filesystem::path path = folder_ + '/' + name;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path) << text;
    }

    std::string In(const std::string& name) const { return folder_ + '/' + name; }

    std::string folder_;

private:
    std::filesystem::path before_;
};

}  // namespace probe
