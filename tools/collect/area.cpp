// Paths are compared component by component, never as texts.
#include "area.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <set>
#include <system_error>
#include <thread>
#include <utility>

#include <sys/stat.h>
#include <sys/statvfs.h>

namespace ominspect::collect {

namespace fs = std::filesystem;

namespace {

// Removes a closing slash, which would count as an empty last component.
fs::path Tidied(const fs::path& path) {
    const fs::path normal = path.lexically_normal();
    return normal.has_filename() || normal == normal.root_path() ? normal : normal.parent_path();
}

}  // namespace

TemporaryArea::TemporaryArea(std::string path) : path_(std::move(path)) {}

TemporaryArea::~TemporaryArea() {
    std::error_code error;
    fs::remove_all(path_, error);
    if (error) {
        (void)std::fprintf(stderr, "cannot remove %s: %s\n", path_.c_str(), error.message().c_str());
    }
}

Result<std::unique_ptr<TemporaryArea>> TemporaryArea::Make() {
    const char* parent = std::getenv("TMPDIR");
    std::string path = AbsolutePath(parent == nullptr || *parent == '\0' ? "/tmp" : parent) + "/ominspect-XXXXXX";
    if (mkdtemp(path.data()) == nullptr) {
        return SystemError();
    }
    return std::unique_ptr<TemporaryArea>(new TemporaryArea(std::move(path)));
}

std::string ResolvedPath(const std::string& path) {
    std::error_code error;
    const fs::path absolute = fs::absolute(path);
    const fs::path resolved = fs::weakly_canonical(absolute, error);
    return Tidied(error ? absolute : resolved).string();
}

bool IsInside(const std::string& path, const std::string& folder) {
    const fs::path inner(path);
    const fs::path outer(folder);
    return std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end()).first == outer.end();
}

std::string AbsolutePath(const std::string& path) {
    const fs::path absolute = fs::absolute(path);
    const bool goesUp = std::find(absolute.begin(), absolute.end(), "..") != absolute.end();
    return goesUp ? ResolvedPath(path) : Tidied(absolute).string();
}

std::string Moved(const std::string& path, const std::string& from, const std::string& to) {
    const fs::path plain = Tidied(fs::path(path));
    if (from == to || !IsInside(plain.string(), from)) {
        return path;
    }
    return Tidied(fs::path(to) / plain.lexically_relative(from)).string();
}

std::optional<std::string> PlaceIn(const std::string& area, const std::string& destination) {
    const fs::path folder = Tidied(fs::absolute(area));
    const fs::path path(destination);
    if (!path.is_absolute() || std::find(path.begin(), path.end(), "..") != path.end()) {
        return std::nullopt;
    }
    const fs::path inside = Tidied(path);
    if (inside == folder || !IsInside(inside.string(), folder.string())) {
        return std::nullopt;
    }
    const fs::path place = inside.lexically_relative(folder);
    fs::path step = folder;
    for (const fs::path& component : place) {
        step /= component;
        std::error_code error;
        if (fs::is_symlink(fs::symlink_status(step, error))) {
            return std::nullopt;
        }
    }
    return place.string();
}

bool Overlap(const std::string& one, const std::string& other) {
    const std::string first = ResolvedPath(one);
    const std::string second = ResolvedPath(other);
    return IsInside(first, second) || IsInside(second, first);
}

bool Answers(const std::string& path) {
    constexpr std::chrono::seconds kPatience{2};
    static std::set<std::string> silent;
    if (silent.contains(path)) {
        return false;
    }
    std::packaged_task<void()> look([path] {
        struct stat status {};
        (void)stat(path.c_str(), &status);
    });
    const std::future<void> seen = look.get_future();
    std::thread(std::move(look)).detach();
    if (seen.wait_for(kPatience) == std::future_status::ready) {
        return true;
    }
    silent.insert(path);
    return false;
}

std::optional<std::uint64_t> FreeBytes(const std::string& path) {
    struct statvfs status {};
    fs::path existing = path;
    while (statvfs(existing.c_str(), &status) != 0) {
        if (existing == existing.parent_path()) {
            return std::nullopt;
        }
        existing = existing.parent_path();
    }
    return std::uint64_t{status.f_bavail} * status.f_frsize;
}

}  // namespace ominspect::collect
