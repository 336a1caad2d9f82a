// Keeps a copy where it belongs: it reads below its source and changes nothing outside its destination, whatever links
// are there and whoever swaps names meanwhile. For that each path is opened once, looked at, and used through its
// descriptor.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>

#include <sys/stat.h>

#include "common/fd.h"
#include "entry.h"
#include "intercept.h"

namespace ominspect::collect {

// What one copy has come to; in memory that two processes share.
struct CopyCounts {
    std::atomic<std::uint64_t> files{0};
    std::atomic<std::uint64_t> bytes{0};
    // The file that is being copied; empty between two files. Read only when the writing process has ended.
    std::array<char, kLongestPath + 1> current{};
};

class CopyGuard final : public FileCalls {
public:
    using Tell = std::function<void(const std::string& path, const std::string& reason)>;

    // For the copy of `source` to `destination`, which lies in `area`: absolute paths in their plain form (see
    // AbsolutePath). The source may itself be a link. `tell` hears of each path that was not copied, and why.
    CopyGuard(const std::string& source, std::string destination, const CopyRules& rules, CopyCounts& counts,
              Tell tell);

    // Removes what an earlier collection left at the destination; a link is removed as a link.
    void Clear();

    std::uint32_t Copy(const char* src, const char* dst) override;
    OsDir* OpenFolder(const char* path) override;
    dirent* ReadFolder(OsDir* folder) override;
    std::uint32_t CloseFolder(OsDir* folder) override;
    std::uint32_t MakeFolder(const char* path, std::uint32_t mode) override;
    std::uint32_t RemoveFolder(const char* path) override;
    std::uint32_t RemoveFile(const char* path) override;

private:
    struct Opened {
        UniqueFd fd;        // for its place only (O_PATH)
        std::string real;   // where that is
        bool told = false;  // it must not be read, which has been told
    };

    Opened OpenSource(const std::string& path);
    std::string InsideArea(const std::string& path);
    std::string InsideDestination(const std::string& path);
    bool IsPassedOver(const std::string& folder, const char* name) const;
    std::uint32_t Count(const struct stat& status);
    std::uint32_t CopyOpened(int source, const struct stat& status, const std::string& dst);

    const std::string source_;
    const std::string sourceReal_;  // links followed; empty when there is no source
    const std::string destination_;
    const CopyRules& rules_;
    CopyCounts& counts_;
    const Tell tell_;
    UniqueFd area_;       // opened when it is first needed
    std::string parent_;  // the folder in the area that was opened last, relative to the area
    UniqueFd parentFd_;
    std::unordered_map<OsDir*, std::string> folders_;  // of the source: where the open ones are
};

}  // namespace ominspect::collect
