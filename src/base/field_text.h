// Reads a fixed-size text field of an envelope or record that another process may have filled.
#pragma once

#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>

/// A copy of a field's text as a C string. A field without a NUL is read to its end and no further.
template <std::size_t N>
class FieldText {
public:
    explicit FieldText(const char (&field)[N]) noexcept : m_length(strnlen(field, N)) {
        std::memcpy(m_text.data(), field, m_length);
    }

    const char* c_str() const noexcept { return m_text.data(); }
    std::string_view View() const noexcept { return {m_text.data(), m_length}; }

private:
    std::array<char, N + 1> m_text{};
    std::size_t m_length;
};
