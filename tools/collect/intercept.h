// Stands between libominspect.so and the platform. Its loader and its copy functions report only to the operations log,
// follow every link and start a tool for every file, so a program that must tell its user, and keep to what it was
// asked for, defines these functions itself. The shared object calls them through the dynamic symbols, and the
// program's definitions come before the platform's, to which they forward while nothing is installed here.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "kivo/os_file.h"

namespace ominspect {

// While it lives, the lines of the operations log go to `sink` and nowhere else. One at a time; made and destroyed
// while no other thread logs.
class LogCapture {
public:
    using Sink = std::function<void(unsigned level, const std::string& text)>;

    explicit LogCapture(Sink sink);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    void Take(unsigned level, const std::string& text) const { sink_(level, text); }

private:
    Sink sink_;
};

// While it lives, it answers the calls that read folders and files and change the file system, as kivo/os_file.h has
// them. What it throws counts as EIO. The step that gives a copy its source's times (touch(1) through system(3)) is
// left out: Copy sets them. One at a time; made and destroyed while no other thread copies.
class FileCalls {
public:
    FileCalls();
    virtual ~FileCalls();
    FileCalls(const FileCalls&) = delete;
    FileCalls& operator=(const FileCalls&) = delete;

    virtual std::uint32_t Copy(const char* src, const char* dst) = 0;
    virtual OsDir* OpenFolder(const char* path) = 0;  // null and errno(3)
    virtual dirent* ReadFolder(OsDir* folder) = 0;
    virtual std::uint32_t CloseFolder(OsDir* folder) = 0;
    virtual std::uint32_t MakeFolder(const char* path, std::uint32_t mode) = 0;
    virtual std::uint32_t RemoveFolder(const char* path) = 0;
    virtual std::uint32_t RemoveFile(const char* path) = 0;
};

// The platform's own functions, past whatever is installed.
namespace platform {

std::uint32_t CopyFile(const char* src, const char* dst);
OsDir* OpenDir(const char* path);
dirent* ReadDir(OsDir* dir);
std::uint32_t CloseDir(OsDir* dir);
std::uint32_t MkDir(const char* path, std::uint32_t mode);
std::uint32_t RmDir(const char* path);
std::uint32_t Remove(const char* path);

}  // namespace platform
}  // namespace ominspect
