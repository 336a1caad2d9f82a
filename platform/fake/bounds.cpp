// Bounds-checked functions (os_bounds.h).
#include "fake/real.h"

using kivo::fake::CallReal;

errno_t memcpy_s(void* dest, size_t destMax, const void* src, size_t count) {
    return CallReal("memcpy_s", real_memcpy_s, dest, destMax, src, count);
}

errno_t memset_s(void* dest, size_t destMax, int value, size_t count) {
    return CallReal("memset_s", real_memset_s, dest, destMax, value, count);
}

errno_t strcpy_s(char* dest, size_t destMax, const char* src) {
    return CallReal("strcpy_s", real_strcpy_s, dest, destMax, src);
}

errno_t strncpy_s(char* dest, size_t destMax, const char* src, size_t count) {
    return CallReal("strncpy_s", real_strncpy_s, dest, destMax, src, count);
}

int vsnprintf_s(char* dest, size_t destMax, size_t count, const char* format, va_list args) {
    if (kivo::fake::Failure(kivo::fake::Hold(), "vsnprintf_s")) {
        return -1;
    }
    return real_vsnprintf_s(dest, destMax, count, format, args);
}

// The same as formatting with a limit that cuts nothing.
int sprintf_s(char* dest, size_t destMax, const char* format, ...) {
    if (kivo::fake::Failure(kivo::fake::Hold(), "sprintf_s")) {
        return -1;
    }
    va_list args;
    va_start(args, format);
    const int length = real_vsnprintf_s(dest, destMax, destMax, format, args);
    va_end(args);
    return length;
}
