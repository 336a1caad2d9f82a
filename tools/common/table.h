// Columns of text for people.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace ominspect::text {

// The text with blanks after it, up to a width in columns.
std::string Padded(std::string text, std::size_t width);

// Rows of equally many cells, without the last line end; the last column is not padded.
std::string Table(const std::vector<std::vector<std::string>>& rows);

// A size in bytes for people: "512 B", "1.5 KiB", "3.0 GiB".
std::string Size(double bytes);

}  // namespace ominspect::text
