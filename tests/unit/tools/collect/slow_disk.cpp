// Preloaded into the program: a disk on which a file of the name "slow..." takes its time to copy, and one of the name
// "hang..." takes for ever. So does to open a folder of that name, which leaves the file "hanging" behind.
#include <array>
#include <cerrno>
#include <climits>
#include <fstream>
#include <string>

#include <dirent.h>
#include <dlfcn.h>
#include <unistd.h>

namespace {

// The last name of what the link leads to.
std::string NameBehind(const std::string& link) {
    std::array<char, PATH_MAX> path{};
    const ssize_t size = readlink(link.c_str(), path.data(), path.size());
    const std::string text(path.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
    return text.substr(text.rfind('/') + 1);
}

}  // namespace

extern "C" [[gnu::visibility("default")]] ssize_t copy_file_range(int in, off64_t* /*inOffset*/, int /*out*/,
                                                                  off64_t* /*outOffset*/, size_t /*size*/,
                                                                  unsigned /*flags*/) {
    const std::string name = NameBehind("/proc/self/fd/" + std::to_string(in));
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

// The copy functions name an open folder by its descriptor.
extern "C" [[gnu::visibility("default")]] DIR* opendir(const char* path) {
    static const auto real = reinterpret_cast<decltype(&opendir)>(dlsym(RTLD_NEXT, "opendir"));
    if (NameBehind(path).starts_with("hang")) {
        const std::ofstream mark("hanging");
        for (;;) {
            (void)pause();
        }
    }
    return real(path);
}
