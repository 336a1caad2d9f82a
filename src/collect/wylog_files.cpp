// A file that cannot be copied or removed does not stop a run.
#include "collect/wylog_files.h"

#include <dirent.h>

#include <algorithm>
#include <set>
#include <utility>

#include "base/log.h"
#include "collect/file_ops.h"
#include "kivo/os_file.h"
#include "ominspect/collect.h"

namespace {

constexpr LogUnit kLogUnit{"InspectFile", 15};
constexpr const char* kAppLogPrefix = "wyapplogcat-log.I";
constexpr std::size_t kMostBackups = 150;
constexpr std::size_t kLeastNewFiles = 3;  // for a run that is not full
constexpr std::size_t kLeftOut = 2;        // the newest, which the system log may still be writing

std::string In(const std::string& dir, const std::string& name) {
    return dir + "/" + name;
}

OsFileStat StatusOf(const std::string& path) {
    OsFileStat status{};
    (void)OsGetStat(path.c_str(), &status);
    return status;
}

// Copies one file and logs how that went.
bool CopyLogFile(const std::string& src, const std::string& dst, const std::string& name) {
    if (OsCopyFile(In(src, name).c_str(), In(dst, name).c_str()) != 0) {
        INSPECT_ERROR("Copy file %s fail", name.c_str());
        return false;
    }
    INSPECT_INFO("Copy file [%s] success", name.c_str());
    return true;
}

// The files of `src` that `dst` does not hold, or holds in an older state. The older ones are removed from `dst`.
std::vector<std::string> TakeNewFiles(const std::string& src, const std::string& dst,
                                      std::vector<std::string>& backups) {
    std::vector<std::string> newFiles;
    for (const std::string& name : ListWylogFiles(src, true)) {
        if (OsAccess(In(dst, name).c_str(), 0) == 0) {
            if (StatusOf(In(src, name)).detectTime == StatusOf(In(dst, name)).detectTime) {
                continue;
            }
            (void)OsRemove(In(dst, name).c_str());
            if (const auto known = std::find(backups.begin(), backups.end(), name); known != backups.end()) {
                backups.erase(known);
            }
            INSPECT_INFO("Remove updated file [%s]", name.c_str());
        }
        newFiles.push_back(name);
    }
    return newFiles;
}

// The names in `dir` that are rotated application logs, or all others. False when it cannot be opened.
bool ReadNames(const std::string& dir, bool wantAppLogs, std::vector<std::string>& names) {
    const DirHandle handle(OsOpenDir(dir.c_str()));
    if (handle == nullptr) {
        return false;
    }
    while (const dirent* entry = OsReadDir(handle.get())) {
        std::string name = static_cast<const char*>(entry->d_name);
        if (name.starts_with(kAppLogPrefix) == wantAppLogs) {
            names.push_back(std::move(name));
        }
    }
    return true;
}

// Takes backups into the list that another process made: a collection driver's full run goes to the same folder as the
// server's periodic ones, and the bound is one for both.
void TakeInOthersBackups(const std::string& dst, std::vector<std::string>& backups) {
    std::vector<std::string> present;
    (void)ReadNames(dst, true, present);
    const std::set<std::string> known(backups.begin(), backups.end());
    std::erase_if(present, [&known](const std::string& name) { return known.contains(name); });
    if (!present.empty()) {
        backups.insert(backups.end(), present.begin(), present.end());
        SortByTime(backups, dst);
    }
}

void TrimBackups(const std::string& dst, std::vector<std::string>& backups) {
    if (backups.size() <= kMostBackups) {
        return;
    }
    const auto keep = backups.end() - static_cast<std::ptrdiff_t>(kMostBackups);
    for (auto name = backups.begin(); name != keep; ++name) {
        const std::string path = In(dst, *name);
        (void)OsRemove(path.c_str());
        INSPECT_INFO("Del file [%s]", SafeTool::TransferSafePath(path).c_str());
    }
    backups.erase(backups.begin(), keep);
}

}  // namespace

std::vector<std::string> ListWylogFiles(const std::string& dir, bool wantAppLogs) {
    std::vector<std::string> names;
    if (!ReadNames(dir, wantAppLogs, names)) {
        INSPECT_ERROR("Failed to open destination directory: %s", dir.c_str());
    }
    return names;
}

void SortByTime(std::vector<std::string>& names, const std::string& dir) {
    // The times are read once: files come and go while their names are sorted. What needs memory comes before any name
    // is moved, so that none is lost without it.
    std::vector<std::pair<int64_t, std::string>> timed;
    timed.reserve(names.size());
    for (const std::string& name : names) {
        timed.emplace_back(StatusOf(In(dir, name)).modifyTime, std::string());
    }
    std::transform(timed.begin(), timed.end(), names.begin(), timed.begin(),
                   [](const auto& entry, auto& name) { return std::pair(entry.first, std::move(name)); });
    std::sort(timed.begin(), timed.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::transform(timed.begin(), timed.end(), names.begin(), [](auto& entry) { return std::move(entry.second); });
}

void BackupAppLogs(const std::string& src, const std::string& dst, bool fullRun, std::vector<std::string>& backups) {
    std::vector<std::string> newFiles = TakeNewFiles(src, dst, backups);
    if (newFiles.empty() || (newFiles.size() < kLeastNewFiles && !fullRun)) {
        return;
    }
    SortByTime(newFiles, src);
    if (!fullRun) {
        newFiles.resize(newFiles.size() - kLeftOut);
    }
    for (const std::string& name : newFiles) {
        if (CopyLogFile(src, dst, name)) {
            (void)InspectChangeFileTime(In(src, name).c_str(), In(dst, name).c_str());
            backups.push_back(name);
        }
    }
    TakeInOthersBackups(dst, backups);
    TrimBackups(dst, backups);
}

void CopyOtherWylogFiles(const std::string& src, const std::string& dst) {
    for (const std::string& name : ListWylogFiles(dst, false)) {
        (void)OsRemove(In(dst, name).c_str());
    }
    for (const std::string& name : ListWylogFiles(src, false)) {
        if (!IsDotEntry(name.c_str()) && CopyLogFile(src, dst, name) &&
            InspectChangeFileTime(In(src, name).c_str(), In(dst, name).c_str()) != 0) {
            INSPECT_ERROR("Change file [%s] stat fail", name.c_str());
        }
    }
}
