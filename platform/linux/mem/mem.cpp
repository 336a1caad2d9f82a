// Each block has a header that names its unit, so that freeing needs no search.
#include "kivo/os_mem.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <new>
#include <string>

namespace {

// Stands before every block and keeps it aligned as malloc aligns.
struct alignas(std::max_align_t) Header {
    OsMemUsage* usage;
    size_t size;
};

constexpr size_t kMaxSize = PTRDIFF_MAX - sizeof(Header);

class Account {
public:
    // Never destroyed: blocks may still be freed while the process ends.
    static Account& Instance() {
        alignas(Account) static std::array<std::byte, sizeof(Account)> place;
        static auto* const account = new (place.data()) Account;  // takes no memory
        return *account;
    }

    /// Counts a block. The returned usage stays where it is; null when there is no memory.
    OsMemUsage* Add(const char* unit, size_t size) {
        const std::lock_guard lock(mutex_);
        try {
            OsMemUsage& usage = usages_[Name(unit)];
            usage.bytes += size;
            ++usage.blocks;
            return &usage;
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
    }

    void Remove(const Header& header) {
        const std::lock_guard lock(mutex_);
        header.usage->bytes -= header.size;
        --header.usage->blocks;
    }

    OsMemUsage Usage(const char* unit) {
        const std::lock_guard lock(mutex_);
        const auto found = usages_.find(Name(unit));
        return found == usages_.end() ? OsMemUsage{} : found->second;
    }

private:
    static const char* Name(const char* unit) { return unit == nullptr ? "unknown" : unit; }

    std::mutex mutex_;
    std::map<std::string, OsMemUsage, std::less<>> usages_;
};

}  // namespace

void* OsMemMallocSetCharMon(size_t size, int fill, const char* unit, uint32_t /*line*/) {
    auto* header = static_cast<Header*>(size > kMaxSize ? nullptr : std::malloc(sizeof(Header) + size));
    if (header == nullptr) {
        return nullptr;
    }
    OsMemUsage* usage = Account::Instance().Add(unit, size);
    if (usage == nullptr) {
        std::free(header);
        return nullptr;
    }
    *header = {usage, size};
    return std::memset(header + 1, fill, size);
}

void OSMemTypeFreeMon(void* block, const char* /*unit*/, uint32_t /*line*/) {
    if (block == nullptr) {
        return;
    }
    Header* header = static_cast<Header*>(block) - 1;
    Account::Instance().Remove(*header);
    std::free(header);
}

struct OsMemUsage OsMemGetUsage(const char* unit) {
    return Account::Instance().Usage(unit);
}
