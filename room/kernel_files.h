// The kernel's trees (/proc, /sys) and other files of the system, below a folder that stands for the root.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace room {

class KernelFiles {
public:
    // Empty for the machine's own.
    explicit KernelFiles(std::string root) : root_(std::move(root)) {}

    // The path below the root.
    [[nodiscard]] std::string At(std::string_view path) const { return root_ + std::string(path); }

    [[nodiscard]] bool Exists(std::string_view path) const;

    // The file as it is; nothing when it cannot be read.
    [[nodiscard]] std::optional<std::string> Bytes(std::string_view path) const;

    // The file without blanks and line ends at its end; nothing when it cannot be read.
    [[nodiscard]] std::optional<std::string> Text(std::string_view path) const;

    // The same as a whole number, also one that begins with 0x; nothing when it is none.
    [[nodiscard]] std::optional<long long> Number(std::string_view path) const;

    [[nodiscard]] std::vector<std::string> Lines(std::string_view path) const;

    // The names in a folder, sorted; those only that begin with `prefix`.
    [[nodiscard]] std::vector<std::string> Names(std::string_view folder, std::string_view prefix = "") const;

private:
    std::string root_;
};

// A whole number, also one that begins with 0x; nothing when the text is none.
std::optional<long long> ParseNumber(std::string_view text);

}  // namespace room
