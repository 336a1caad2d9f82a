// Path safety: masking for the log, and the characters that no path handed to the shell may hold.
#include <algorithm>
#include <set>

#include "ominspect/collect.h"

std::string SafeTool::TransferSafePath(const std::string& path) {
    constexpr std::size_t kShown = 8;
    const std::string mask = "****";
    return path.size() <= kShown ? mask : mask + path.substr(path.size() - kShown);
}

bool SafeTool::IsContainDangerChar(const std::string& path) {
    static const std::set<char> kDangerous{'|', ';', '&', '$', '>', '<', '`', '\n', '!'};
    return std::any_of(kDangerous.begin(), kDangerous.end(),
                       [&path](char dangerous) { return path.find(dangerous) != std::string::npos; });
}
