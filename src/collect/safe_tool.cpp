// The set of dangerous characters is deliberately narrow: blanks and quotes are not in it.
#include <algorithm>
#include <set>

#include "ominspect/collect.h"

std::string SafeTool::TransferSafePath(const std::string& path) {
    constexpr std::size_t kShown = 8;
    const std::string mask = "****";
    return path.size() <= kShown ? mask : mask + path.substr(path.size() - kShown);
}

bool SafeTool::IsContainDangerChar(const std::string& path) {
    // Never destroyed: the backup's timer may still use it while the process ends.
    static const auto& dangerousChars = *new std::set<char>{'|', ';', '&', '$', '>', '<', '`', '\n', '!'};
    return std::any_of(dangerousChars.begin(), dangerousChars.end(),
                       [&path](char dangerous) { return path.find(dangerous) != std::string::npos; });
}
