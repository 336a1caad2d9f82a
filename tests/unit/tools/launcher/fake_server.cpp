// A stand-in for the server's shared object: its entries answer with the number in FAKE_SERVER_RESULT.
// With FAKE_SERVER_STAYS, its main is asked to end and does not.
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <unistd.h>

namespace {

std::uint32_t Answer(const char* entry) {
    (void)std::printf("%s called\n", entry);
    const char* result = std::getenv("FAKE_SERVER_RESULT");
    return result == nullptr ? 0 : static_cast<std::uint32_t>(std::strtoul(result, nullptr, 0));
}

}  // namespace

[[gnu::visibility("default")]] int main() {
    if (std::getenv("FAKE_SERVER_STAYS") != nullptr) {
        (void)std::raise(SIGTERM);
        for (;;) {
            (void)pause();
        }
    }
    return static_cast<int>(Answer("main"));
}

extern "C" [[gnu::visibility("default")]] std::uint32_t KivoInspectTaskMain() {
    return Answer("KivoInspectTaskMain");
}
