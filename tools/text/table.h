// Columns of text for people.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace ominspect::text {

// Characters of a UTF-8 text; each is taken to be one column wide.
std::size_t WidthOf(std::string_view utf8);

// The text with blanks up to the width.
std::string Padded(std::string text, std::size_t width);

// The longest beginning of a valid UTF-8 text that takes at most `width` columns.
std::string_view CutToWidth(std::string_view utf8, std::size_t width);

// Rows of equally many cells, without the last line end; the last column is not padded.
std::string Table(const std::vector<std::vector<std::string>>& rows);

// A size in bytes for people: "512 B", "1.5 KiB", "3.0 GiB".
std::string Size(double bytes);

}  // namespace ominspect::text
