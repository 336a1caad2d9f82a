// Preloaded into the program: a disk on which a file of the name "slow..." takes its time to copy, and one of the name
// "hang..." takes for ever.
#include <array>
#include <cerrno>
#include <climits>
#include <string>

#include <unistd.h>

extern "C" [[gnu::visibility("default")]] ssize_t copy_file_range(int in, off64_t* /*inOffset*/, int /*out*/,
                                                                  off64_t* /*outOffset*/, size_t /*size*/,
                                                                  unsigned /*flags*/) {
    std::array<char, PATH_MAX> path{};
    const std::string link = "/proc/self/fd/" + std::to_string(in);
    (void)readlink(link.c_str(), path.data(), path.size() - 1);
    const std::string text = path.data();
    const std::string name = text.substr(text.rfind('/') + 1);
    while (name.starts_with("hang")) {
        (void)pause();
    }
    if (name.starts_with("slow")) {
        constexpr useconds_t kDelay = 20000;
        (void)usleep(kDelay);
    }
    errno = ENOSYS;  // the copy goes on by hand
    return -1;
}
