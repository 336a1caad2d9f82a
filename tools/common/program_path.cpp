#include "common/program_path.h"

#include <filesystem>
#include <system_error>

namespace ominspect {

namespace fs = std::filesystem;

Result<std::string> BesideProgram(const std::string& relative) {
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    if (error) {
        return SystemError(error.value());
    }
    return (program.parent_path() / relative).lexically_normal().string();
}

}  // namespace ominspect
