// Preloaded into the program: a product that collects more, and fails.
#include <cstdio>

extern "C" [[gnu::visibility("default")]] int InspectCollectVendorLog() {
    if (std::FILE* file = std::fopen("logs/of the product", "w")) {
        (void)std::fputs("x", file);
        (void)std::fclose(file);
    }
    (void)std::fputs("said by the product\n", stderr);
    return 7;
}
