// What the server's process holds, as the kernel tells it.
#pragma once

#include <sys/types.h>

#include <cstddef>

namespace soak {

struct Figures {
    size_t jobs = 0;     // threads beside the main one, the tasks' and the platform's
    size_t threads = 0;  // all
    size_t descriptors = 0;
    size_t memoryKiB = 0;  // RssAnon of proc(5): what the process has written to
};

Figures FiguresOf(pid_t server);

}  // namespace soak
