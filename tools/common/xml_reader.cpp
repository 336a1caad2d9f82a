// The parser takes any document; what these functions add is that nothing in it is passed over.
#include "common/xml_reader.h"

#include <algorithm>
#include <charconv>

#include "common/fd.h"
#include "common/text.h"

namespace ominspect::xml {
namespace {

constexpr std::size_t kMaxFileSize = 1024UL * 1024UL;

// The parser would silently end the file, or a text, at a NUL.
void RefuseNul(std::string_view xml) {
    const auto lineOf = [xml](std::size_t at) {
        return 1 + static_cast<int>(std::count(xml.begin(), xml.begin() + static_cast<std::ptrdiff_t>(at), '\n'));
    };
    const std::size_t nul = xml.find('\0');
    if (nul != std::string_view::npos) {
        throw Mistake{lineOf(nul), "a NUL byte"};
    }
    for (std::size_t at = xml.find("&#"); at != std::string_view::npos; at = xml.find("&#", at + 2)) {
        const std::size_t digits = at + 2 + (xml.substr(at + 2, 1) == "x" ? 1 : 0);
        const std::size_t end = xml.find_first_not_of('0', digits);
        if (end != digits && end != std::string_view::npos && xml[end] == ';') {
            throw Mistake{lineOf(at), "a NUL character"};
        }
    }
}

const Element& RootOf(const tinyxml2::XMLDocument& document, std::string_view name) {
    const Element* root = nullptr;
    for (const auto* node = document.FirstChild(); node != nullptr; node = node->NextSibling()) {
        if (node->ToComment() != nullptr || node->ToDeclaration() != nullptr) {
            continue;
        }
        if (root != nullptr || node->ToElement() == nullptr || std::string_view(node->Value()) != name) {
            throw Mistake{node->GetLineNum(),
                          "the file must hold one element " + std::string(name) + " and nothing else"};
        }
        root = node->ToElement();
    }
    if (root == nullptr) {
        throw Mistake{1, "the file must hold one element " + std::string(name)};
    }
    return *root;
}

}  // namespace

std::string Quoted(std::string_view text) {
    return std::string("'").append(text::Escaped(text)).append("'");
}

Attributes ReadAttributes(const Element& element, std::span<const std::string_view> known) {
    Attributes out;
    for (const auto* attribute = element.FirstAttribute(); attribute != nullptr; attribute = attribute->Next()) {
        const std::string_view name = attribute->Name();
        const int line = attribute->GetLineNum();
        if (std::find(known.begin(), known.end(), name) == known.end()) {
            throw Mistake{line, std::string(element.Name()) + " has no attribute " + Quoted(name)};
        }
        // The parser refuses a second attribute of the same name.
        out.emplace(name, Attribute{attribute->Value(), line});
    }
    return out;
}

std::string ReadName(const Element& element, const Attributes& attributes, std::string_view attribute,
                     std::size_t max) {
    const auto found = attributes.find(attribute);
    if (found == attributes.end()) {
        throw Mistake{element.GetLineNum(), std::string(element.Name()) + " needs the attribute " + Quoted(attribute)};
    }
    const auto& [value, line] = found->second;
    if (value.empty() || value.size() > max) {
        throw Mistake{
            line, std::string(attribute) + " " + Quoted(value) + " must have 1 to " + std::to_string(max) + " bytes"};
    }
    if (!text::IsPlain(value)) {
        throw Mistake{line, std::string(attribute) + " " + Quoted(value) + " must be plain UTF-8 text"};
    }
    return value;
}

std::string ReadOptionalName(const Element& element, const Attributes& attributes, std::string_view attribute,
                             std::size_t max) {
    return attributes.contains(attribute) ? ReadName(element, attributes, attribute, max) : std::string();
}

std::string_view ReadWord(const Attributes& attributes, std::string_view attribute,
                          std::initializer_list<std::string_view> words) {
    const auto found = attributes.find(attribute);
    if (found == attributes.end()) {
        return *words.begin();
    }
    const auto& [value, line] = found->second;
    const auto* const word = std::find(words.begin(), words.end(), value);
    if (word == words.end()) {
        std::string all;
        for (const std::string_view known : words) {
            all += all.empty() ? "\"" : " or \"";
            all += known;
            all += '"';
        }
        throw Mistake{line, std::string(attribute) + " " + Quoted(value) + " must be " + all};
    }
    return *word;
}

unsigned ReadNumber(const Attributes& attributes, std::string_view attribute, unsigned fallback, unsigned max,
                    unsigned min) {
    const auto found = attributes.find(attribute);
    if (found == attributes.end()) {
        return fallback;
    }
    const auto& [value, line] = found->second;
    unsigned number = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (error != std::errc() || end != value.data() + value.size() || number < min || number > max) {
        throw Mistake{line, std::string(attribute) + " " + Quoted(value) + " must be a number from " +
                                std::to_string(min) + " to " + std::to_string(max)};
    }
    return number;
}

bool ReadBool(const Attributes& attributes, std::string_view attribute, bool fallback) {
    const auto found = attributes.find(attribute);
    if (found == attributes.end()) {
        return fallback;
    }
    if (found->second.value == "true" || found->second.value == "false") {
        return found->second.value == "true";
    }
    throw Mistake{found->second.line,
                  std::string(attribute) + " " + Quoted(found->second.value) + R"( must be "true" or "false")"};
}

std::vector<const Element*> ReadChildren(const Element& parent) {
    std::vector<const Element*> out;
    for (const auto* node = parent.FirstChild(); node != nullptr; node = node->NextSibling()) {
        if (const auto* element = node->ToElement()) {
            out.push_back(element);
        } else if (node->ToComment() == nullptr) {
            throw Mistake{node->GetLineNum(), std::string(parent.Name()) + " may hold elements and comments only"};
        }
    }
    return out;
}

void RefuseChildren(const Element& element) {
    const std::vector<const Element*> children = ReadChildren(element);
    if (!children.empty()) {
        throw Mistake{children.front()->GetLineNum(),
                      "unknown element " + Quoted(children.front()->Name()) + " in " + element.Name()};
    }
}

std::string ReadText(const Element& element, std::size_t max) {
    (void)ReadAttributes(element, {});
    std::string out;
    for (const auto* node = element.FirstChild(); node != nullptr; node = node->NextSibling()) {
        const auto* text = node->ToText();
        if (text == nullptr) {
            throw Mistake{node->GetLineNum(), std::string(element.Name()) + " may hold text only"};
        }
        out += text->Value();
    }
    if (out.size() > max) {
        throw Mistake{element.GetLineNum(),
                      std::string(element.Name()) + " is longer than " + std::to_string(max) + " bytes"};
    }
    return out;
}

std::optional<Error> ReadDocument(std::string_view xml, std::string_view root,
                                  const std::function<void(const Element&)>& read) {
    try {
        RefuseNul(xml);
        tinyxml2::XMLDocument document;
        if (document.Parse(xml.data(), xml.size()) != tinyxml2::XML_SUCCESS) {
            throw Mistake{std::max(1, document.ErrorLineNum()),
                          std::string("no well-formed XML (") + document.ErrorName() + ")"};
        }
        read(RootOf(document, root));
    } catch (const Mistake& mistake) {
        return WrongUse("line " + std::to_string(mistake.line) + ": " + mistake.text);
    }
    return std::nullopt;
}

std::optional<Error> ReadFile(const std::string& path, std::string_view root,
                              const std::function<void(const Element&)>& read) {
    const auto inFile = [&path](const Error& error) { return WrongUse(text::Escaped(path) + ": " + error.text); };
    const auto xml = ReadSmallFile(path, kMaxFileSize);
    if (!xml) {
        return inFile(xml.Failure());
    }
    const auto error = ReadDocument(*xml, root, read);
    return error ? std::optional(inFile(*error)) : std::nullopt;
}

}  // namespace ominspect::xml
