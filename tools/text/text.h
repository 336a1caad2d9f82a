// Text from outside, made safe: UTF-8 checking, and three ways of showing bytes that nobody vouches for.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ominspect::text {

// Bytes of the well-formed UTF-8 character that begins at `at` (1 to 4); 0 when there is none. Overlong forms,
// surrogates and code points beyond U+10FFFF are not well-formed.
std::size_t CharacterLength(std::string_view text, std::size_t at);

// Whether the text is valid UTF-8 without control characters (C0, DEL, C1, line and paragraph separators, and
// the characters that turn the writing direction).
bool IsPlain(std::string_view text);

// The text as valid UTF-8: every byte that belongs to no character becomes U+FFFD.
std::string ToUtf8(std::string_view text);

// The text as a person can see it on a terminal, on one line, with nothing hidden and nothing that two texts
// share: a backslash is doubled, \n \r \t as such, other control characters as \u{hex}, stray bytes as \xhh.
std::string Escaped(std::string_view text);

// A JSON document in which the control characters that JSON leaves as they are (DEL, C1, and those that turn the
// writing direction) are escaped as well: the same document, fit for a terminal.
std::string EscapedJson(std::string_view json);

// The text with a blank for each control character and '?' for each stray byte.
std::string OneLine(std::string_view text);

// The longest beginning of at most `maxBytes` bytes that cuts no character.
std::string_view Cut(std::string_view text, std::size_t maxBytes);

}  // namespace ominspect::text
