// Files (os_file.h): real ones.
#include "fake/linux.h"

using kivo::fake::CallLinux;

uint32_t OsAccess(const char* path, int mode) {
    return CallLinux("OsAccess", linux_OsAccess, path, mode);
}

OsDir* OsOpenDir(const char* path) {
    return CallLinux("OsOpenDir", linux_OsOpenDir, path);
}

struct dirent* OsReadDir(OsDir* dir) {
    return CallLinux("OsReadDir", linux_OsReadDir, dir);
}

uint32_t OsCloseDir(OsDir* dir) {
    return CallLinux("OsCloseDir", linux_OsCloseDir, dir);
}

uint32_t OsCopyFile(const char* src, const char* dst) {
    return CallLinux("OsCopyFile", linux_OsCopyFile, src, dst);
}

uint32_t OsGetStat(const char* path, struct OsFileStat* stat) {
    return CallLinux("OsGetStat", linux_OsGetStat, path, stat);
}

uint32_t OsMkDir(const char* path, uint32_t mode) {
    return CallLinux("OsMkDir", linux_OsMkDir, path, mode);
}

uint32_t OsRemove(const char* path) {
    return CallLinux("OsRemove", linux_OsRemove, path);
}

uint32_t OsRmDir(const char* path) {
    return CallLinux("OsRmDir", linux_OsRmDir, path);
}
