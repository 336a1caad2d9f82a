// A machine without the device's folders, on which none can be made: what a test needs that runs the shipped server's
// own paths, for it must not touch the machine's.
#include <cerrno>

#include "kivo/os_file.h"

uint32_t OsAccess(const char* /*path*/, int /*mode*/) {
    return ENOENT;
}

uint32_t OsMkDir(const char* /*path*/, uint32_t /*mode*/) {
    return EROFS;
}
