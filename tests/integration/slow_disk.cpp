// A disk on which no copy comes to an end: the file "copying" in the working directory tells that one has begun.
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>

#include "kivo/os_file.h"

uint32_t OsCopyFile(const char* /*src*/, const char* /*dst*/) {
    close(open("copying", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    for (;;) {
        pause();
    }
}
