// Folders and files of a test's own.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>

namespace support {

/// Writes a file and makes its folders.
inline void WriteFile(const std::filesystem::path& path, const std::string& text) {
    if (path.has_parent_path()) {
        std::filesystem::create_directories(path.parent_path());
    }
    std::ofstream(path, std::ios::binary) << text;
}

/// The text of a file; empty when there is none.
inline std::string Contents(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;  // in large pieces: the tests are not optimised
    text << file.rdbuf();
    return text.str();
}

/// An empty folder that is removed, with all that is in it, by the destructor.
class TempFolder {
public:
    explicit TempFolder(const std::filesystem::path& parent = std::filesystem::temp_directory_path()) {
        std::string pattern = (parent / "inspect-test-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("cannot create a temporary folder");
        }
        m_path = std::filesystem::canonical(pattern);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    [[nodiscard]] const std::filesystem::path& Path() const { return m_path; }
    std::string operator/(const std::string& name) const { return (m_path / name).string(); }

private:
    std::filesystem::path m_path;
};

/// A temporary folder that is the working folder while the object lives.
class WorkingFolder : public TempFolder {
public:
    WorkingFolder() : m_before(std::filesystem::current_path()) { std::filesystem::current_path(Path()); }
    WorkingFolder(const WorkingFolder&) = delete;
    WorkingFolder& operator=(const WorkingFolder&) = delete;
    ~WorkingFolder() {
        std::error_code ignored;
        std::filesystem::current_path(m_before, ignored);
    }

private:
    std::filesystem::path m_before;
};

}  // namespace support
