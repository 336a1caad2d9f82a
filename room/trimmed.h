// Lines of files and of messages.
#pragma once

#include <cstddef>
#include <string_view>

namespace room {

// The text without the blanks around it, and without the carriage return of a line.
inline std::string_view Trimmed(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r";
    const std::size_t first = text.find_first_not_of(kBlanks);
    return first == std::string_view::npos ? std::string_view()
                                           : text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

}  // namespace room
