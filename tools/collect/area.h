// The diagnosis area, which is the folder that the entries are copied into, and the paths in it and outside.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "common/error.h"

namespace ominspect::collect {

// A folder below TMPDIR (or /tmp) for this process's user only, removed with all that is in it.
class TemporaryArea {
public:
    static Result<std::unique_ptr<TemporaryArea>> Make();
    ~TemporaryArea();
    TemporaryArea(const TemporaryArea&) = delete;
    TemporaryArea& operator=(const TemporaryArea&) = delete;

    const std::string& Path() const { return path_; }

private:
    explicit TemporaryArea(std::string path);

    const std::string path_;
};

// The absolute path without ".", ".." and closing slashes. Links stay as they are, except where a ".." leads through
// one.
std::string AbsolutePath(const std::string& path);

// The destination's path relative to the area. Nothing when it lies outside, by its name or because there is a link on
// the way.
std::optional<std::string> PlaceIn(const std::string& area, const std::string& destination);

// The path below `to` that stands for one below `from`, compared by their names; any other path as it is.
std::string Moved(const std::string& path, const std::string& from, const std::string& to);

// The absolute path with links followed, as far as it exists.
std::string ResolvedPath(const std::string& path);

// Whether a path is a folder or lies in it, by their names.
bool IsInside(const std::string& path, const std::string& folder);

// Whether one of the two paths, links followed, lies inside the other or is the same.
bool Overlap(const std::string& one, const std::string& other);

// Whether the system says within two seconds what is at the path, if anything: for a mount whose server is gone it
// never does. A path that did not answer is not asked again, and the thread that asks is left behind. For one thread.
bool Answers(const std::string& path);

// Bytes that this user can still write where the path is, or will be; nothing when the system does not tell.
std::optional<std::uint64_t> FreeBytes(const std::string& path);

}  // namespace ominspect::collect
