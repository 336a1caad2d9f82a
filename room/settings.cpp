// Each subject reads its own element.
#include "settings.h"

#include <array>
#include <set>
#include <utility>

#include "common/xml_reader.h"

namespace room {
namespace {

namespace xml = ominspect::xml;

Settings ReadRoom(const xml::Element& room) {
    (void)xml::ReadAttributes(room, {});
    Settings settings;
    std::set<std::string_view> seen;
    for (const auto* child : xml::ReadChildren(room)) {
        const std::string_view name = child->Name();
        if (!seen.insert(name).second) {
            throw xml::Mistake{child->GetLineNum(), "a second element " + xml::Quoted(name) + " in Room"};
        }
        if (name == "Audio") {
            settings.audio = ReadAudioSettings(*child);
        } else if (name == "Board") {
            settings.board = ReadBoardSettings(*child);
        } else if (name == "Network") {
            settings.network = ReadNetworkSettings(*child);
        } else if (name == "Media") {
            settings.media = ReadMediaSettings(*child);
        } else if (name == "Camera") {
            settings.camera = ReadCameraSettings(*child);
        } else if (name == "Call") {
            settings.call = ReadCallSettings(*child);
        } else if (name == "Extra") {
            settings.extra = ReadExtraSettings(*child);
        } else {
            throw xml::Mistake{child->GetLineNum(), "unknown element " + xml::Quoted(name) + " in Room"};
        }
    }
    return settings;
}

}  // namespace

ominspect::Result<Settings> ParseSettings(std::string_view text) {
    Settings settings;
    const auto error = xml::ReadDocument(text, "Room", [&](const xml::Element& room) { settings = ReadRoom(room); });
    return error ? ominspect::Result<Settings>(*error) : std::move(settings);
}

ominspect::Result<Settings> LoadSettings(const std::string& path) {
    Settings settings;
    const auto error = xml::ReadFile(path, "Room", [&](const xml::Element& room) { settings = ReadRoom(room); });
    return error ? ominspect::Result<Settings>(*error) : std::move(settings);
}

}  // namespace room
