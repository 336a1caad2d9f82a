// Reading stops at the first mistake, which is told with its line.
#include "config.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <map>
#include <set>
#include <span>

#include <tinyxml2.h>

#include "common/fd.h"
#include "common/text.h"

namespace ominspect::owner {
namespace {

constexpr std::size_t kMaxFileSize = 1024UL * 1024UL;
constexpr std::size_t kMaxProcessName = 15;
constexpr std::size_t kMaxItemName = 31;
constexpr std::size_t kMaxItems = 256;
constexpr std::size_t kMaxArgs = 64;
constexpr std::size_t kMaxText = 4095;
constexpr unsigned kMaxParallel = 64;
constexpr unsigned kDefaultParallel = 16;
constexpr unsigned kDefaultLimit = 30;
constexpr unsigned kMaxLimit = 86400;
constexpr unsigned kMaxSyncLimit = 270;

// Thrown and caught within this file: a mistake ends the reading at once.
struct Mistake {
    int line;
    std::string text;
};

std::string Quoted(std::string_view text) {
    return "'" + text::Escaped(text) + "'";
}

struct Attribute {
    std::string value;
    int line;
};

// The element's attributes; each must be one of `known`.
using Attributes = std::map<std::string, Attribute, std::less<>>;

Attributes ReadAttributes(const tinyxml2::XMLElement& element, std::span<const std::string_view> known) {
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

std::string ReadName(const tinyxml2::XMLElement& element, const Attributes& attributes, std::string_view attribute,
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

unsigned ReadNumber(const Attributes& attributes, std::string_view attribute, unsigned fallback, unsigned max) {
    const auto found = attributes.find(attribute);
    if (found == attributes.end()) {
        return fallback;
    }
    const auto& [value, line] = found->second;
    unsigned number = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (error != std::errc() || end != value.data() + value.size() || number < 1 || number > max) {
        throw Mistake{
            line, std::string(attribute) + " " + Quoted(value) + " must be a number from 1 to " + std::to_string(max)};
    }
    return number;
}

bool ReadBool(const Attributes& attributes, std::string_view attribute) {
    const auto found = attributes.find(attribute);
    if (found == attributes.end() || found->second.value == "false") {
        return false;
    }
    if (found->second.value == "true") {
        return true;
    }
    throw Mistake{found->second.line,
                  std::string(attribute) + " " + Quoted(found->second.value) + R"( must be "true" or "false")"};
}

// The child elements, in order; nothing else but comments may stand beside them.
std::vector<const tinyxml2::XMLElement*> ReadChildren(const tinyxml2::XMLElement& parent) {
    std::vector<const tinyxml2::XMLElement*> out;
    for (const auto* node = parent.FirstChild(); node != nullptr; node = node->NextSibling()) {
        if (const auto* element = node->ToElement()) {
            out.push_back(element);
        } else if (node->ToComment() == nullptr) {
            throw Mistake{node->GetLineNum(), std::string(parent.Name()) + " may hold elements and comments only"};
        }
    }
    return out;
}

// The text of a Command or an Arg, exactly as it stands.
std::string ReadText(const tinyxml2::XMLElement& element) {
    (void)ReadAttributes(element, {});
    std::string out;
    for (const auto* node = element.FirstChild(); node != nullptr; node = node->NextSibling()) {
        const auto* text = node->ToText();
        if (text == nullptr) {
            throw Mistake{node->GetLineNum(), std::string(element.Name()) + " may hold text only"};
        }
        out += text->Value();
    }
    if (out.size() > kMaxText) {
        throw Mistake{element.GetLineNum(),
                      std::string(element.Name()) + " is longer than " + std::to_string(kMaxText) + " bytes"};
    }
    return out;
}

std::vector<std::string> ReadCommandLine(const tinyxml2::XMLElement& item) {
    std::vector<std::string> argv;
    for (const auto* child : ReadChildren(item)) {
        const std::string_view name = child->Name();
        const int line = child->GetLineNum();
        if (name == "Command") {
            if (!argv.empty()) {
                throw Mistake{line, "Item must begin with its one Command"};
            }
            argv.push_back(ReadText(*child));
            if (argv[0].empty() || argv[0][0] != '/') {
                throw Mistake{line, "Command " + Quoted(argv[0]) + " must be an absolute path"};
            }
        } else if (name == "Arg") {
            if (argv.empty()) {
                throw Mistake{line, "Item must begin with its one Command"};
            }
            if (argv.size() > kMaxArgs) {
                throw Mistake{line, "more than " + std::to_string(kMaxArgs) + " arguments"};
            }
            argv.push_back(ReadText(*child));
        } else {
            throw Mistake{line, "unknown element " + Quoted(name) + " in Item"};
        }
    }
    if (argv.empty()) {
        throw Mistake{item.GetLineNum(), "Item needs a Command"};
    }
    return argv;
}

ItemConfig ReadItem(const tinyxml2::XMLElement& element) {
    static constexpr std::array<std::string_view, 3> kKnown{"name", "timeout", "isSync"};
    const Attributes attributes = ReadAttributes(element, kKnown);
    ItemConfig item;
    item.name = ReadName(element, attributes, "name", kMaxItemName);
    item.isSync = ReadBool(attributes, "isSync");
    item.limit =
        std::chrono::seconds(ReadNumber(attributes, "timeout", kDefaultLimit, item.isSync ? kMaxSyncLimit : kMaxLimit));
    item.argv = ReadCommandLine(element);
    return item;
}

OwnerConfig ReadOwner(const tinyxml2::XMLElement& element) {
    static constexpr std::array<std::string_view, 2> kKnown{"process", "maxParallel"};
    const Attributes attributes = ReadAttributes(element, kKnown);
    OwnerConfig config;
    config.process = ReadName(element, attributes, "process", kMaxProcessName);
    if (config.process == "ominspect") {
        throw Mistake{attributes.find("process")->second.line, "process 'ominspect' is the server's own name"};
    }
    config.maxParallel = ReadNumber(attributes, "maxParallel", kDefaultParallel, kMaxParallel);
    std::set<std::string, std::less<>> names;
    for (const auto* child : ReadChildren(element)) {
        const int line = child->GetLineNum();
        if (std::string_view(child->Name()) != "Item") {
            throw Mistake{line, "unknown element " + Quoted(child->Name()) + " in Owner"};
        }
        if (config.items.size() == kMaxItems) {
            throw Mistake{line, "more than " + std::to_string(kMaxItems) + " items"};
        }
        config.items.push_back(ReadItem(*child));
        if (!names.insert(config.items.back().name).second) {
            throw Mistake{line, "a second item " + Quoted(config.items.back().name)};
        }
    }
    if (config.items.empty()) {
        throw Mistake{element.GetLineNum(), "Owner needs at least one Item"};
    }
    return config;
}

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

OwnerConfig ReadDocument(std::string_view xml) {
    RefuseNul(xml);
    tinyxml2::XMLDocument document;
    if (document.Parse(xml.data(), xml.size()) != tinyxml2::XML_SUCCESS) {
        throw Mistake{std::max(1, document.ErrorLineNum()),
                      std::string("no well-formed XML (") + document.ErrorName() + ")"};
    }
    const tinyxml2::XMLElement* root = nullptr;
    for (const auto* node = document.FirstChild(); node != nullptr; node = node->NextSibling()) {
        if (node->ToComment() != nullptr || node->ToDeclaration() != nullptr) {
            continue;
        }
        if (root != nullptr || node->ToElement() == nullptr || std::string_view(node->Value()) != "Owner") {
            throw Mistake{node->GetLineNum(), "the file must hold one element Owner and nothing else"};
        }
        root = node->ToElement();
    }
    if (root == nullptr) {
        throw Mistake{1, "the file must hold one element Owner"};
    }
    return ReadOwner(*root);
}

}  // namespace

Result<OwnerConfig> ParseConfig(std::string_view xml) {
    try {
        return ReadDocument(xml);
    } catch (const Mistake& mistake) {
        return WrongUse("line " + std::to_string(mistake.line) + ": " + mistake.text);
    }
}

Result<OwnerConfig> LoadConfig(const std::string& path) {
    const auto inFile = [&path](const Error& error) { return WrongUse(text::Escaped(path) + ": " + error.text); };
    const auto xml = ReadSmallFile(path, kMaxFileSize);
    if (!xml) {
        return inFile(xml.Failure());
    }
    auto config = ParseConfig(*xml);
    return config ? std::move(config) : inFile(config.Failure());
}

}  // namespace ominspect::owner
