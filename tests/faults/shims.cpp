// Loaded before all others, for faults that a test switches on by files in the folder FAULT_FOLDER:
//     clock       seconds to add to the time of day
//     no-threads  no thread can be made
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

using PathBuffer = std::array<char, 256>;

PathBuffer PathOf(const char* name) {
    PathBuffer path{};
    const char* folder = std::getenv("FAULT_FOLDER");
    std::snprintf(path.data(), path.size(), "%s/%s", folder != nullptr ? folder : "", name);
    return path;
}

time_t SecondsToAdd() {
    const int savedErrno = errno;
    std::array<char, 32> text{};
    const int file = open(PathOf("clock").data(), O_RDONLY | O_CLOEXEC);
    if (file >= 0) {
        (void)!read(file, text.data(), text.size() - 1);
        close(file);
    }
    errno = savedErrno;
    return std::atol(text.data());
}

template <typename Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" [[gnu::visibility("default")]] int clock_gettime(clockid_t clock, timespec* time) {
    static auto* const next = Next<decltype(clock_gettime)>("clock_gettime");
    const int result = next(clock, time);
    if (result == 0 && clock == CLOCK_REALTIME) {
        time->tv_sec += SecondsToAdd();
    }
    return result;
}

extern "C" [[gnu::visibility("default")]] int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                                             void* (*entry)(void*), void* argument) {
    static auto* const next = Next<decltype(pthread_create)>("pthread_create");
    return access(PathOf("no-threads").data(), F_OK) == 0 ? EAGAIN : next(thread, attributes, entry, argument);
}
