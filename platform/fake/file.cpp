// Files (os_file.h): real ones.
#include "fake/real.h"

using kivo::fake::CallReal;

uint32_t OsAccess(const char* path, int mode) {
    return CallReal("OsAccess", real_OsAccess, path, mode);
}

OsDir* OsOpenDir(const char* path) {
    return CallReal("OsOpenDir", real_OsOpenDir, path);
}

struct dirent* OsReadDir(OsDir* dir) {
    return CallReal("OsReadDir", real_OsReadDir, dir);
}

uint32_t OsCloseDir(OsDir* dir) {
    return CallReal("OsCloseDir", real_OsCloseDir, dir);
}

uint32_t OsCopyFile(const char* src, const char* dst) {
    return CallReal("OsCopyFile", real_OsCopyFile, src, dst);
}

uint32_t OsGetStat(const char* path, struct OsFileStat* stat) {
    return CallReal("OsGetStat", real_OsGetStat, path, stat);
}

uint32_t OsMkDir(const char* path, uint32_t mode) {
    return CallReal("OsMkDir", real_OsMkDir, path, mode);
}

uint32_t OsRemove(const char* path) {
    return CallReal("OsRemove", real_OsRemove, path);
}

uint32_t OsRmDir(const char* path) {
    return CallReal("OsRmDir", real_OsRmDir, path);
}
