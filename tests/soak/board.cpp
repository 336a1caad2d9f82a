// A file that every process maps; it begins as zeros, which is what the counts begin with.
#include "board.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <stdexcept>

namespace soak {

static_assert(std::atomic<uint64_t>::is_always_lock_free);

namespace {

Board& Map(const std::string& path, int flags) {
    const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC | flags, 0600);
    if (fd < 0 || ftruncate(fd, sizeof(Board)) != 0) {
        throw std::runtime_error("no board at " + path);
    }
    void* memory = mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (memory == MAP_FAILED) {
        throw std::runtime_error("no memory for the board");
    }
    return *static_cast<Board*>(memory);
}

}  // namespace

Board& MakeBoard(const std::string& path) {
    return Map(path, O_CREAT | O_EXCL);
}

Board& JoinBoard(const std::string& path) {
    return Map(path, 0);
}

}  // namespace soak
