// Takes the bytes that libFuzzer gives apart, for the targets that are given more than one thing.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace fuzz {

/// Ends the program, as a crash does, when something is not as it must be.
inline void Check(bool holds) {
    if (!holds) {
        __builtin_trap();
    }
}

/// What is not there any more reads as zero, and as empty.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : left_(reinterpret_cast<const char*>(data), size) {}

    bool IsEmpty() const { return left_.empty(); }

    std::string_view Take(std::size_t size) {
        const std::string_view taken = left_.substr(0, size);
        left_.remove_prefix(taken.size());
        return taken;
    }

    /// A little-endian number of so many bytes.
    std::uint32_t Number(std::size_t bytes) {
        std::uint32_t number = 0;
        const std::string_view taken = Take(bytes);
        for (std::size_t i = 0; i < taken.size(); ++i) {
            number |= static_cast<std::uint32_t>(static_cast<unsigned char>(taken[i])) << (8 * i);
        }
        return number;
    }

    /// A length of two bytes, and so many bytes: in a block of their own, so that a read beyond them is noticed.
    std::vector<unsigned char> Block() {
        const std::string_view taken = Take(Number(2));
        return {taken.begin(), taken.end()};
    }

    std::string_view Rest() { return Take(left_.size()); }

private:
    std::string_view left_;
};

}  // namespace fuzz
