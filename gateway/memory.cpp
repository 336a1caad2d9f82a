// The start runs through much code that nothing needs afterwards: parsers, loaders, the initialisation of libraries.
// The kernel maps its pages, and sixteen around each, and would take them back only when memory is short.
#include "memory.h"

#include <cstddef>
#include <cstdint>

#include <link.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

namespace ominspect::gateway {
namespace {

constexpr int kLargeBytes = 64 * 1024;

int GiveBackSegments(dl_phdr_info* object, std::size_t /*size*/, void* /*context*/) {
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    for (std::size_t i = 0; i < object->dlpi_phnum; ++i) {
        const ElfW(Phdr)& segment = object->dlpi_phdr[i];
        // Memory that is or was writable may differ from the file.
        if (segment.p_type == PT_LOAD && (segment.p_flags & PF_W) == 0) {
            const std::uintptr_t begin = (object->dlpi_addr + segment.p_vaddr + page - 1) & ~(page - 1);
            const std::uintptr_t end = (object->dlpi_addr + segment.p_vaddr + segment.p_filesz) & ~(page - 1);
            if (begin < end) {
                // NOLINTNEXTLINE(performance-no-int-to-ptr): the loader tells numbers
                (void)madvise(reinterpret_cast<void*>(begin), end - begin, MADV_DONTNEED);
            }
        }
    }
    return 0;
}

}  // namespace

void SpareMemory() {
    // Threads that allocate little and seldom need no heaps of their own.
    (void)mallopt(M_ARENA_MAX, 1);
    // Large documents go back to the system as soon as they are sent.
    (void)mallopt(M_MMAP_THRESHOLD, kLargeBytes);
}

void GiveBackMemory() {
    (void)malloc_trim(0);
    (void)dl_iterate_phdr(&GiveBackSegments, nullptr);
}

}  // namespace ominspect::gateway
