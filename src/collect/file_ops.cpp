// Links are followed: the functions work on what a path leads to.
#include "collect/file_ops.h"

#include <dirent.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/log.h"
#include "kivo/os_bounds.h"
#include "ominspect/collect.h"

namespace {

constexpr LogUnit kLogUnit{"InspectFile", 15};
constexpr int kFailed = 1;
constexpr uint32_t kDirectoryMode = 0770;

int RemoveDirectory(const char* path) {
    if (const DirHandle dir(OsOpenDir(path)); dir != nullptr) {
        while (const dirent* entry = OsReadDir(dir.get())) {
            PathBuffer inside;
            if (IsDotEntry(static_cast<const char*>(entry->d_name))) {
                continue;
            }
            if (!JoinPath(inside, path, static_cast<const char*>(entry->d_name))) {
                break;
            }
            (void)InspectRemovePath(inside.data());
        }
    }
    return static_cast<int>(OsRmDir(path));
}

}  // namespace

bool IsDotEntry(const char* name) {
    return std::string_view(name) == "." || std::string_view(name) == "..";
}

bool JoinPath(PathBuffer& out, const char* directory, const char* name) {
    return memset_s(out.data(), out.size(), 0, out.size()) == 0 &&
           sprintf_s(out.data(), out.size(), "%s/%s", directory, name) >= 0;
}

bool InspectIsDir(const char* path) {
    struct stat status {};
    (void)stat(path, &status);
    return S_ISDIR(status.st_mode);
}

int InspectMkdirMulti(const char* path) {
    if (path == nullptr) {
        INSPECT_ERROR("null path!");
        return kFailed;
    }
    if (OsAccess(path, 0) == 0) {
        return 0;
    }
    if (const char* slash = std::strrchr(path, '/'); slash != nullptr) {
        const std::string parent(path, slash);
        if (InspectMkdirMulti(parent.c_str()) == 0 && OsAccess(path, 0) == 0) {
            return 0;
        }
    }
    return static_cast<int>(OsMkDir(path, kDirectoryMode));
}

int InspectRemovePath(const char* path) {
    if (OsAccess(path, 0) != 0) {
        INSPECT_ERROR("null path!");
        return kFailed;
    }
    struct stat status {};
    if (stat(path, &status) != 0) {
        INSPECT_ERROR("get dir stat error!");
        return kFailed;
    }
    if (S_ISREG(status.st_mode)) {
        return static_cast<int>(OsRemove(path));
    }
    if (!S_ISDIR(status.st_mode)) {
        INSPECT_ERROR("unknow file type!");
        return kFailed;
    }
    return RemoveDirectory(path);
}

int InspectChangeFileTime(const char* src, const char* dst) {
    if (SafeTool::IsContainDangerChar(src) || SafeTool::IsContainDangerChar(dst)) {
        INSPECT_ERROR("file path contains danger char, skip!");
        return kFailed;
    }
    std::array<char, 523> command;
    if (memset_s(command.data(), command.size(), 0, command.size()) != 0) {
        return kFailed;
    }
    if (sprintf_s(command.data(), command.size(), "touch -r %s %s", src, dst) < 0) {
        INSPECT_ERROR("sprintf_s fail");
        return kFailed;
    }
    if (OsAccess(dst, 0) != 0) {
        return 0;
    }
    // NOLINTNEXTLINE(cert-env33-c): touch(1) is how the device's time stamps are carried over; the paths were checked
    return std::system(command.data()) == 0 ? 0 : kFailed;
}
