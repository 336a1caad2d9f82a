// Preloaded into the program: a product that collects more, and fails; where there is a file "hang" it
// writes its process there and hangs.
#include <cstdio>

#include <unistd.h>

extern "C" [[gnu::visibility("default")]] int InspectCollectVendorLog() {
    if (std::FILE* file = std::fopen("logs/of the product", "w")) {
        (void)std::fputs("x", file);
        (void)std::fclose(file);
    }
    (void)std::fputs("said by the product\n", stderr);
    if (std::FILE* file = std::fopen("hang", "r+")) {
        (void)std::fprintf(file, "%d\n", static_cast<int>(getpid()));
        (void)std::fclose(file);
        for (;;) {
            (void)pause();
        }
    }
    return 7;
}
