// What is expected of the calls and of the servers that they need.
#pragma once

#include "common/xml_reader.h"

namespace room {

struct CallSettings {};

// Reads the element Call of the room's file.
CallSettings ReadCallSettings(const ominspect::xml::Element& element);

}  // namespace room
