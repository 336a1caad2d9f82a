// Where benchmarks put files whose writing is not what they measure.
#pragma once

#include <filesystem>

namespace bench {

/// A folder in memory where there is one, else that of temporary files.
inline std::filesystem::path ScratchParent() {
    const std::filesystem::path memory = "/dev/shm";
    return std::filesystem::is_directory(memory) ? memory : std::filesystem::temp_directory_path();
}

}  // namespace bench
