// Strict reading of the programs' XML files: whatever is not known is a mistake, told with its line.
#pragma once

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <tinyxml2.h>

#include "common/error.h"

namespace ominspect::xml {

using Element = tinyxml2::XMLElement;

// Thrown by the functions below and caught by ReadDocument: a mistake ends the reading at once.
struct Mistake {
    int line;
    std::string text;
};

// The text in quotes, fit for a terminal.
std::string Quoted(std::string_view text);

struct Attribute {
    std::string value;
    int line;
};

using Attributes = std::map<std::string, Attribute, std::less<>>;

// The element's attributes; each must be one of `known`.
Attributes ReadAttributes(const Element& element, std::span<const std::string_view> known);

// An attribute that must be there, as plain text of 1 to `max` bytes.
std::string ReadName(const Element& element, const Attributes& attributes, std::string_view attribute, std::size_t max);

// The same for one that may be left out; empty then.
std::string ReadOptionalName(const Element& element, const Attributes& attributes, std::string_view attribute,
                             std::size_t max);

// One of these words; the first of them when it is not there.
std::string_view ReadWord(const Attributes& attributes, std::string_view attribute,
                          std::initializer_list<std::string_view> words);

// A whole number from `min` to `max`; `fallback` when it is not there.
unsigned ReadNumber(const Attributes& attributes, std::string_view attribute, unsigned fallback, unsigned max,
                    unsigned min = 1);

// "true" or "false"; `fallback` when it is not there.
bool ReadBool(const Attributes& attributes, std::string_view attribute, bool fallback = false);

// The child elements, in order; nothing else but comments may stand beside them.
std::vector<const Element*> ReadChildren(const Element& parent);

// A mistake when the element holds anything but comments.
void RefuseChildren(const Element& element);

// The element's text, exactly as it stands, at most `max` bytes; nothing else may be in it.
std::string ReadText(const Element& element, std::size_t max);

// Hands the one element of the document, which must have the name `root`, to `read`. The error of a mistake is
// "line N: what is wrong".
std::optional<Error> ReadDocument(std::string_view xml, std::string_view root,
                                  const std::function<void(const Element&)>& read);

// The same for a regular file of at most 1 MiB; the error begins with the path.
std::optional<Error> ReadFile(const std::string& path, std::string_view root,
                              const std::function<void(const Element&)>& read);

}  // namespace ominspect::xml
