// The numbers of the calling thread and its process.
#pragma once

#include <sys/types.h>

namespace kivo::log {

/// As gettid(2) and getpid(2) say, which are asked only once per thread, and again in the child of a fork(2).
struct ThreadId {
    pid_t process = 0;
    pid_t thread = 0;

    static const ThreadId& OfThisThread();
};

}  // namespace kivo::log
