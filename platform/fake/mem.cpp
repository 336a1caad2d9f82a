// Accounted memory (os_mem.h): real blocks, counted per unit.
#include "kivo/os_mem.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <string>

#include "fake/journal.h"
#include "fake/reset.h"
#include "fake/scheduler.h"

namespace {

// Stands before every block.
struct alignas(std::max_align_t) Header {
    OsMemUsage* usage;
    size_t size;
    uint64_t epoch;  // a block of an earlier test is not counted any more
};

uint64_t g_epoch = 0;

std::map<std::string, OsMemUsage>& Usages() {
    static auto& usages = *new std::map<std::string, OsMemUsage>;
    return usages;
}

std::string NameOf(const char* unit) {
    return unit == nullptr ? "unknown" : unit;
}

}  // namespace

void kivo::fake::ResetMemory() {
    ++g_epoch;
    for (auto& [unit, usage] : Usages()) {
        usage = {};
    }
}

void* OsMemMallocSetCharMon(size_t size, int fill, const char* unit, uint32_t /*line*/) {
    const kivo::fake::Lock lock = kivo::fake::Hold();
    if (kivo::fake::Failure(lock, "OsMemMallocSetCharMon") || size > PTRDIFF_MAX - sizeof(Header)) {
        return nullptr;
    }
    void* memory = std::malloc(sizeof(Header) + size);
    if (memory == nullptr) {
        return nullptr;
    }
    OsMemUsage& usage = Usages()[NameOf(unit)];
    usage.bytes += size;
    ++usage.blocks;
    auto* header = new (memory) Header{&usage, size, g_epoch};
    void* block = header + 1;
    std::memset(block, fill, size);
    return block;
}

void OSMemTypeFreeMon(void* block, const char* /*unit*/, uint32_t /*line*/) {
    if (block == nullptr) {
        return;
    }
    const kivo::fake::Lock lock = kivo::fake::Hold();
    auto* header = static_cast<Header*>(block) - 1;
    if (header->epoch == g_epoch) {
        header->usage->bytes -= header->size;
        --header->usage->blocks;
    }
    std::free(header);
}

struct OsMemUsage OsMemGetUsage(const char* unit) {
    const kivo::fake::Lock lock = kivo::fake::Hold();
    const auto usage = Usages().find(NameOf(unit));
    return usage == Usages().end() ? OsMemUsage{} : usage->second;
}
