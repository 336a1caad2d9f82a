// Items that the server's list lacks. The room's file names those that are wanted.
#pragma once

#include <set>
#include <string>
#include <string_view>

#include "common/xml_reader.h"

namespace room {

struct ExtraSettings {
    std::set<std::string, std::less<>> named;

    [[nodiscard]] bool Names(std::string_view item) const { return named.contains(item); }
};

ExtraSettings ReadExtraSettings(const ominspect::xml::Element& element);

}  // namespace room
