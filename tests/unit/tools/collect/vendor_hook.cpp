// Preloaded into the program: a product that collects more, and fails; it hangs when there is a file "hang".
#include <cstdio>

#include <unistd.h>

extern "C" [[gnu::visibility("default")]] int InspectCollectVendorLog() {
    if (std::FILE* file = std::fopen("logs/of the product", "w")) {
        (void)std::fputs("x", file);
        (void)std::fclose(file);
    }
    (void)std::fputs("said by the product\n", stderr);
    while (access("hang", F_OK) == 0) {
        (void)pause();
    }
    return 7;
}
