// Text from outside, made safe: UTF-8 checking, and ways of showing bytes that nobody vouches for. A character is
// well-formed UTF-8: no overlong form, no surrogate, nothing beyond U+10FFFF; all other bytes are stray.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ominspect::text {

// Whether the text is valid UTF-8 without control characters (C0, DEL, C1, line and paragraph separators, and
// the characters that turn the writing direction).
bool IsPlain(std::string_view text);

// The text as valid UTF-8: every stray byte becomes U+FFFD.
std::string ToUtf8(std::string_view text);

// The text for a terminal, on one line, with nothing hidden, and different for different texts: a backslash is doubled,
// \n \r \t are written so, other control characters as \u{hex}, stray bytes as \xhh.
std::string Escaped(std::string_view text);

// A JSON document in which the control characters that JSON leaves as they are (DEL, C1, and those that turn the
// writing direction) are escaped as well: the same document, fit for a terminal.
std::string EscapedJson(std::string_view json);

// The text with a blank in place of each control character and '?' in place of each stray byte.
std::string OneLine(std::string_view text);

// The longest beginning of at most `maxBytes` bytes that cuts no character.
std::string_view Cut(std::string_view text, std::size_t maxBytes);

// How many columns the text takes on a terminal: two for a wide character, none for one that is put over another, one
// for a stray byte.
std::size_t WidthOf(std::string_view text);

// The longest beginning that takes at most `width` columns and cuts no character.
std::string_view CutToWidth(std::string_view text, std::size_t width);

}  // namespace ominspect::text
