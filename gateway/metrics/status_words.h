// The status words of results as values of a label. Owners invent words, so only the first ones get a place of their
// own; the rest is one: "other".
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace ominspect::gateway {

class StatusWords {
public:
    static constexpr std::size_t kMost = 12;

    // The word's number, below kMost; the same each time.
    std::size_t NumberOf(std::string_view word) {
        const auto found = std::find(words_.begin(), words_.end(), word);
        if (found != words_.end()) {
            return static_cast<std::size_t>(found - words_.begin());
        }
        if (words_.size() == kMost) {
            return 0;
        }
        words_.emplace_back(word);
        return words_.size() - 1;
    }

    const std::string& Word(std::size_t number) const { return words_[number]; }

private:
    std::vector<std::string> words_{"other", "success", "warn", "fail", "unknown"};
};

}  // namespace ominspect::gateway
