// Kernel files have no size that could be trusted; a file of this kind is small.
#include "kernel_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <charconv>

#include "common/fd.h"

namespace room {
namespace {

constexpr std::size_t kMaxFile = 1024UL * 1024UL;

}  // namespace

bool KernelFiles::Exists(std::string_view path) const {
    return access(At(path).c_str(), F_OK) == 0;
}

std::optional<std::string> KernelFiles::Bytes(std::string_view path) const {
    auto bytes = ominspect::ReadSmallFile(At(path), kMaxFile);
    return bytes ? std::optional(std::move(*bytes)) : std::nullopt;
}

std::optional<std::string> KernelFiles::Text(std::string_view path) const {
    auto text = Bytes(path);
    if (text) {
        text->erase(text->find_last_not_of(" \t\r\n") + 1);
    }
    return text;
}

std::optional<long long> KernelFiles::Number(std::string_view path) const {
    const auto text = Text(path);
    return text ? ParseNumber(*text) : std::nullopt;
}

std::vector<std::string> KernelFiles::Lines(std::string_view path) const {
    std::vector<std::string> lines;
    const auto text = Text(path);
    for (std::string_view rest = text ? *text : std::string_view(); !rest.empty();) {
        const std::size_t end = rest.find('\n');
        lines.emplace_back(rest.substr(0, end));
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    }
    return lines;
}

std::vector<std::string> KernelFiles::Names(std::string_view folder, std::string_view prefix) const {
    std::vector<std::string> names;
    (void)ominspect::SortedNames(AT_FDCWD, At(folder).c_str(), names);
    std::erase_if(names, [prefix](const std::string& name) { return !name.starts_with(prefix); });
    return names;
}

std::optional<long long> ParseNumber(std::string_view text) {
    const bool isHex = text.starts_with("0x") || text.starts_with("0X");
    const char* end = text.data() + text.size();
    long long number = 0;
    const auto [last, error] = std::from_chars(text.data() + (isHex ? 2 : 0), end, number, isHex ? 16 : 10);
    return error == std::errc() && last == end && !text.empty() ? std::optional(number) : std::nullopt;
}

}  // namespace room
