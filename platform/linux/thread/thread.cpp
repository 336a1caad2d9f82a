// Threads over pthreads.
#include "kivo/os_thread.h"

#include <pthread.h>

#include <cerrno>
#include <ctime>
#include <type_traits>

static_assert(std::is_same_v<OsThread, pthread_t>);

uint32_t OsPthreadCreate(OsThread* thread, const void* attributes, OsThreadEntry entry, void* argument) {
    if (thread == nullptr || entry == nullptr) {
        return EINVAL;
    }
    return static_cast<uint32_t>(
        pthread_create(thread, static_cast<const pthread_attr_t*>(attributes), entry, argument));
}

uint32_t OsPthreadDetach(OsThread thread) {
    return thread == 0 ? ESRCH : static_cast<uint32_t>(pthread_detach(thread));
}

uint32_t OsSleep(uint32_t seconds) {
    // Sleeps until a point in time, so that a signal neither shortens nor prolongs the sleep.
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_sec += seconds;
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR) {
    }
    return 0;
}
