// What a folder's copy lacks: the walk goes over the copy, which is finite even where links make the source endless.
#include "audit.h"

#include <algorithm>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

#include "common/fd.h"

namespace ominspect::collect {
namespace {

constexpr std::size_t kLongestPath = 255;

std::string Joined(const std::string& folder, const std::string& name) {
    std::string path = folder;
    return path.append(1, '/').append(name);
}

bool IsFolder(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

void AuditFolder(const std::string& source, const std::string& copy, const std::set<std::string>& known,
                 const std::function<void(Failure)>& tell) {
    std::vector<std::string> wanted;
    std::vector<std::string> copied;
    if (const auto error = SortedNames(AT_FDCWD, source.c_str(), wanted)) {
        tell({source, error->text});
    }
    if (const auto error = SortedNames(AT_FDCWD, copy.c_str(), copied)) {
        tell({copy, error->text});
        return;
    }
    const std::size_t longest = std::max(source.size(), copy.size());
    const bool ended = std::any_of(wanted.begin(), wanted.end(),
                                   [&](const std::string& name) { return longest + 1 + name.size() > kLongestPath; });
    for (const std::string& name : wanted) {
        const std::string path = Joined(source, name);
        const std::string copyPath = Joined(copy, name);
        if (known.contains(path)) {
            continue;
        }
        if (std::binary_search(copied.begin(), copied.end(), name)) {
            if (IsFolder(copyPath)) {
                AuditFolder(path, copyPath, known, tell);
            }
        } else if (longest + 1 + name.size() > kLongestPath) {
            tell({path, "the path is longer than 255 bytes, which ends the copy of its folder"});
        } else {
            tell({path, ended ? "comes after a path longer than 255 bytes" : "not copied"});
        }
    }
}

}  // namespace ominspect::collect
