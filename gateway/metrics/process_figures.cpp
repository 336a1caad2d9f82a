// /proc gives the memory as it is now; getrusage(2) only knows the most there was.
#include "metrics/process_figures.h"

#include <array>
#include <charconv>
#include <ctime>

#include <fcntl.h>
#include <unistd.h>

#include "common/fd.h"

namespace ominspect::gateway {
namespace {

// The second number of /proc/self/statm.
double ResidentPages() {
    std::array<char, 256> text{};
    const UniqueFd fd(open("/proc/self/statm", O_RDONLY | O_CLOEXEC));
    const ssize_t size = fd ? read(fd.Get(), text.data(), text.size()) : -1;
    if (size <= 0) {
        return 0;
    }
    const char* const end = text.data() + size;
    std::uint64_t pages = 0;
    const auto total = std::from_chars(text.data(), end, pages);
    if (total.ptr == end || std::from_chars(total.ptr + 1, end, pages).ec != std::errc()) {
        return 0;
    }
    return static_cast<double>(pages);
}

}  // namespace

ProcessFigures ReadProcessFigures() {
    ProcessFigures figures;
    timespec cpu{};
    (void)clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &cpu);
    figures.cpuSeconds = static_cast<double>(cpu.tv_sec) + static_cast<double>(cpu.tv_nsec) / 1e9;
    figures.residentBytes = ResidentPages() * static_cast<double>(sysconf(_SC_PAGESIZE));
    return figures;
}

}  // namespace ominspect::gateway
