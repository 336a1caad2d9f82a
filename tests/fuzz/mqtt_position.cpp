// The gateway's note of what the broker has. A file without sense is the beginning, and what is written is read.
#include "mqtt/position.h"

#include <cstdio>
#include <fstream>
#include <string>

#include <unistd.h>

#include "input.h"

using ominspect::gateway::mqtt::PositionFile;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::uint64_t kMaxExact = 9007199254740991;
    static const std::string path = "/dev/shm/ominspect-fuzz-position-" + std::to_string(getpid());
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(data), static_cast<long>(size));
    const PositionFile file(path, "room12");
    const std::uint64_t position = file.Load();
    fuzz::Check(position <= kMaxExact);
    const std::string terminal(reinterpret_cast<const char*>(data), size < 64 ? size : 64);
    const PositionFile own(path, terminal);
    fuzz::Check(!own.Save(position) && (own.Load() == position || terminal.find('\0') != std::string::npos));
    (void)std::remove(path.c_str());
    return 0;
}
