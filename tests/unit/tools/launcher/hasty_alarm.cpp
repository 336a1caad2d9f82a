// For LD_PRELOAD: an alarm(2) that writes its seconds as a line, and does not wait for them.
#include <csignal>
#include <string>

#include <unistd.h>

extern "C" [[gnu::visibility("default")]] unsigned alarm(unsigned seconds) noexcept {
    const std::string line = "alarm in " + std::to_string(seconds) + " s\n";
    (void)!write(STDOUT_FILENO, line.data(), line.size());
    (void)std::raise(SIGALRM);
    return 0;
}
