// CLOCK_REALTIME, cut to milliseconds.
#include "kivo/os_time.h"

#include <ctime>

uint64_t OsGetSystemTime(void) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1'000'000;
}
