// Keeps a copy inside its source.
#include "link_guard.h"

#include <filesystem>
#include <system_error>

#include "area.h"

namespace ominspect::collect {

namespace fs = std::filesystem;

LinkGuard::LinkGuard(const std::string& source, const std::string& destination)
    : source_(ResolvedPath(source)), destination_(ResolvedPath(destination)) {}

std::string LinkGuard::Objection(const std::string& path) const {
    std::error_code error;
    const std::string real = fs::canonical(path, error).string();
    if (error) {
        return {};  // whoever opens it finds out
    }
    if (IsInside(real, destination_)) {
        return {};  // what an earlier collection left
    }
    if (!IsInside(real, source_)) {
        return "a link that leads out of the source";
    }
    const std::string parent = ResolvedPath(fs::absolute(path).parent_path().string());
    return IsInside(parent, real) ? "a link to a folder that it lies in" : "";
}

}  // namespace ominspect::collect
