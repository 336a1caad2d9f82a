// Keeps a copy inside its source: the copy functions follow every link.
#pragma once

#include <string>

namespace ominspect::collect {

class LinkGuard {
public:
    // For the copy of `source` to `destination`; the source may itself be a link.
    LinkGuard(const std::string& source, const std::string& destination);

    // Why this path must not be read: it leads out of both trees, or to a folder that it lies in, without end. Empty
    // when it may.
    std::string Objection(const std::string& path) const;

private:
    std::string source_;  // links followed
    std::string destination_;
};

}  // namespace ominspect::collect
