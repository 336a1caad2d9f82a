// collector: plays the component that drives collections, with the server's shared object in its own process.
//
//     collector dir|file|wylogs SOURCE DESTINATION SECONDS
//
// Prints "running 0" or "running 1", as it finds the flag afterwards. The server's log lines go to standard error, for
// no log is open.
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "kivo/os_timer.h"
#include "ominspect/collect.h"

int main(int argc, char** argv) {
    if (argc != 5) {
        return EXIT_FAILURE;
    }
    const std::string_view kind = argv[1];
    const InspectCopyFunction copy = kind == "dir"    ? InspectCopyDirFile
                                     : kind == "file" ? InspectCopyFile
                                                      : InspectCopyWylogsFile;
    CollectConfig config;
    config.startTimer = true;
    config.running = true;
    config.timeout = static_cast<uint32_t>(std::strtoul(argv[4], nullptr, 10));
    if (OsTmrManagerInit(1, 0, 0) != 0) {
        return EXIT_FAILURE;
    }
    copy(argv[2], argv[3], config);
    std::printf("running %d\n", config.running ? 1 : 0);
    return EXIT_SUCCESS;
}
