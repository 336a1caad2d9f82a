// A process that has used up its descriptors.
#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace support {

/// While it lives, this process gets no descriptor, whatever it closed before.
class NoDescriptors {
public:
    NoDescriptors() {
        getrlimit(RLIMIT_NOFILE, &former_);
        const int lowest = open("/dev/null", O_RDONLY | O_CLOEXEC);
        close(lowest);
        const rlimit limit{static_cast<rlim_t>(lowest), former_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &former_); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;
    NoDescriptors(NoDescriptors&&) = delete;
    NoDescriptors& operator=(NoDescriptors&&) = delete;

private:
    rlimit former_{};
};

}  // namespace support
