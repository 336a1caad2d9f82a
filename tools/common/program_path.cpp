#include "common/program_path.h"

#include <filesystem>
#include <system_error>

namespace ominspect {

Result<std::string> ProgramBeside(const std::string& relative) {
    std::error_code error;
    const auto own = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) {
        return SystemError(error.value());
    }
    return (own.parent_path() / relative).lexically_normal().string();
}

}  // namespace ominspect
