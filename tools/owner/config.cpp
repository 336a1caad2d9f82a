// Reading stops at the first mistake, which is told with its line.
#include "config.h"

#include <algorithm>
#include <array>
#include <set>

#include "common/xml_reader.h"

namespace ominspect::owner {
namespace {

using xml::Attributes;
using xml::Mistake;
using xml::Quoted;

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

std::vector<std::string> ReadCommandLine(const xml::Element& item) {
    std::vector<std::string> argv;
    for (const auto* child : xml::ReadChildren(item)) {
        const std::string_view name = child->Name();
        const int line = child->GetLineNum();
        if (name == "Command") {
            if (!argv.empty()) {
                throw Mistake{line, "Item must begin with its one Command"};
            }
            argv.push_back(xml::ReadText(*child, kMaxText));
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
            argv.push_back(xml::ReadText(*child, kMaxText));
        } else {
            throw Mistake{line, "unknown element " + Quoted(name) + " in Item"};
        }
    }
    if (argv.empty()) {
        throw Mistake{item.GetLineNum(), "Item needs a Command"};
    }
    return argv;
}

// The server keeps groups and items in one table: to take such an item back would take the group away.
constexpr std::array<std::string_view, 2> kGroups{"kivo_group_trace", "unknown_group"};

ItemConfig ReadItem(const xml::Element& element) {
    static constexpr std::array<std::string_view, 3> kKnown{"name", "timeout", "isSync"};
    const Attributes attributes = xml::ReadAttributes(element, kKnown);
    ItemConfig item;
    item.name = xml::ReadName(element, attributes, "name", kMaxItemName);
    item.isSync = xml::ReadBool(attributes, "isSync");
    item.limit = std::chrono::seconds(
        xml::ReadNumber(attributes, "timeout", kDefaultLimit, item.isSync ? kMaxSyncLimit : kMaxLimit));
    item.argv = ReadCommandLine(element);
    return item;
}

OwnerConfig ReadOwner(const xml::Element& element) {
    static constexpr std::array<std::string_view, 2> kKnown{"process", "maxParallel"};
    const Attributes attributes = xml::ReadAttributes(element, kKnown);
    OwnerConfig config;
    config.process = xml::ReadName(element, attributes, "process", kMaxProcessName);
    if (config.process == "ominspect") {
        throw Mistake{attributes.find("process")->second.line, "process 'ominspect' is the server's own name"};
    }
    config.maxParallel = xml::ReadNumber(attributes, "maxParallel", kDefaultParallel, kMaxParallel);
    std::set<std::string, std::less<>> names;
    for (const auto* child : xml::ReadChildren(element)) {
        const int line = child->GetLineNum();
        if (std::string_view(child->Name()) != "Item") {
            throw Mistake{line, "unknown element " + Quoted(child->Name()) + " in Owner"};
        }
        if (config.items.size() == kMaxItems) {
            throw Mistake{line, "more than " + std::to_string(kMaxItems) + " items"};
        }
        config.items.push_back(ReadItem(*child));
        if (std::ranges::find(kGroups, config.items.back().name) != std::end(kGroups)) {
            throw Mistake{line, Quoted(config.items.back().name) + " is the name of a group of the server"};
        }
        if (!names.insert(config.items.back().name).second) {
            throw Mistake{line, "a second item " + Quoted(config.items.back().name)};
        }
    }
    if (config.items.empty()) {
        throw Mistake{element.GetLineNum(), "Owner needs at least one Item"};
    }
    return config;
}

}  // namespace

Result<OwnerConfig> ParseConfig(std::string_view xml) {
    OwnerConfig config;
    const auto error = xml::ReadDocument(xml, "Owner", [&](const xml::Element& root) { config = ReadOwner(root); });
    return error ? Result<OwnerConfig>(*error) : std::move(config);
}

Result<OwnerConfig> LoadConfig(const std::string& path) {
    OwnerConfig config;
    const auto error = xml::ReadFile(path, "Owner", [&](const xml::Element& root) { config = ReadOwner(root); });
    return error ? Result<OwnerConfig>(*error) : std::move(config);
}

}  // namespace ominspect::owner
