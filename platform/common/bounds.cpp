// Arguments are checked in the order null, size, room, overlap; the first violation decides.
#include "kivo/os_bounds.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

// A size above PTRDIFF_MAX is no size of an object: it is a negative number that was converted.
bool IsBadSize(size_t size) {
    return size == 0 || size > PTRDIFF_MAX;
}

bool Overlap(const void* a, size_t aSize, const void* b, size_t bSize) {
    const auto aStart = reinterpret_cast<uintptr_t>(a);
    const auto bStart = reinterpret_cast<uintptr_t>(b);
    return aStart < bStart ? bStart - aStart < aSize : aStart - bStart < bSize;
}

errno_t CopyText(char* dest, size_t destMax, const char* src, size_t count) {
    if (dest == nullptr) {
        return EINVAL;
    }
    if (IsBadSize(destMax)) {
        return ERANGE;
    }
    if (src == nullptr) {
        *dest = '\0';
        return EINVAL;
    }
    const size_t length = strnlen(src, std::min(count, destMax));
    if (length == destMax) {
        *dest = '\0';
        return ERANGE;
    }
    const size_t bytesRead = length < count ? length + 1 : length;
    if (Overlap(dest, length + 1, src, bytesRead)) {
        *dest = '\0';
        return EINVAL;
    }
    std::memcpy(dest, src, length);
    dest[length] = '\0';
    return 0;
}

}  // namespace

errno_t memcpy_s(void* dest, size_t destMax, const void* src, size_t count) {
    if (dest == nullptr || src == nullptr) {
        return EINVAL;
    }
    if (IsBadSize(destMax) || count > destMax) {
        return ERANGE;
    }
    if (Overlap(dest, count, src, count)) {
        return EINVAL;
    }
    std::memcpy(dest, src, count);
    return 0;
}

errno_t memset_s(void* dest, size_t destMax, int value, size_t count) {
    if (dest == nullptr) {
        return EINVAL;
    }
    if (IsBadSize(destMax) || count > destMax) {
        return ERANGE;
    }
    std::memset(dest, value, count);
    return 0;
}

errno_t strcpy_s(char* dest, size_t destMax, const char* src) {
    return CopyText(dest, destMax, src, SIZE_MAX);
}

errno_t strncpy_s(char* dest, size_t destMax, const char* src, size_t count) {
    return CopyText(dest, destMax, src, count);
}

int sprintf_s(char* dest, size_t destMax, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int written = vsnprintf_s(dest, destMax, destMax, format, args);
    va_end(args);
    return written;
}

int vsnprintf_s(char* dest, size_t destMax, size_t count, const char* format, va_list args) {
    if (dest == nullptr || IsBadSize(destMax)) {
        return -1;
    }
    if (format == nullptr) {
        *dest = '\0';
        return -1;
    }
    const bool mayCut = count < destMax;
    const size_t room = mayCut ? count + 1 : destMax;
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyzer does not follow sprintf_s's list to here
    const int length = std::vsnprintf(dest, room, format, args);
    if (length < 0 || (static_cast<size_t>(length) >= room && !mayCut)) {
        *dest = '\0';
        return -1;
    }
    return static_cast<int>(std::min(static_cast<size_t>(length), room - 1));
}
