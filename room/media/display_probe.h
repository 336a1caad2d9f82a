// The connectors of the graphics cards. Tests answer instead of them.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "common/error.h"

namespace room {

struct Connector {
    std::string name{};  // such as "HDMI-A-1"
    bool isConnected = false;
    std::string mode{};  // what is sent now, such as "1920x1080@60"; empty for nothing
};

class DisplayProbe {
public:
    virtual ~DisplayProbe() = default;
    // In the order of the cards and of their connectors; none without a card.
    virtual ominspect::Result<std::vector<Connector>> Connectors() = 0;
};

std::unique_ptr<DisplayProbe> SystemDisplays();

}  // namespace room
