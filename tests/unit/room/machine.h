// A machine whose files of the kernel are written down: its tree in a folder of the test's own.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "finding.h"
#include "kernel_files.h"
#include "support/temp_folder.h"

namespace support {

class Machine {
public:
    // Lines "path: content" of tests/unit/room/machines/<name>; "\n" in a content stands for a line end.
    explicit Machine(const std::string& name) {
        std::ifstream file(std::string(MACHINES) + "/" + name);
        EXPECT_TRUE(file) << name;
        for (std::string line; std::getline(file, line);) {
            if (const std::size_t colon = line.find(": "); !line.starts_with('#') && colon != std::string::npos) {
                Set(line.substr(0, colon), line.substr(colon + 2));
            }
        }
    }
    Machine() = default;

    void Set(const std::string& path, std::string content) const {
        for (std::size_t at = content.find("\\n"); at != std::string::npos; at = content.find("\\n", at + 1)) {
            content.replace(at, 2, "\n");
        }
        WriteFile(Root() + path, content + "\n");
    }

    // A folder where a file should be: it cannot be read.
    void Break(const std::string& path) const {
        std::filesystem::remove_all(Root() + path);
        std::filesystem::create_directories(Root() + path);
    }

    void Remove(const std::string& path) const { std::filesystem::remove_all(Root() + path); }

    [[nodiscard]] std::string Root() const { return folder_.Path().string(); }
    [[nodiscard]] room::KernelFiles Files() const { return room::KernelFiles(Root()); }

private:
    TempFolder folder_;
};

// "status: text"
inline std::string Said(const room::Finding& finding) {
    return std::string(room::StatusWord(finding.status)) + ": " + finding.text;
}

}  // namespace support
