// The screens of the room, and the input for somebody's picture.
#pragma once

#include <string>

#include "common/xml_reader.h"
#include "finding.h"
#include "media/display_probe.h"
#include "media/video_probe.h"

namespace room {

//   <Media mainOutput="HDMI-A-1" mainMode="3840x2160@60" auxOutput="HDMI-A-2" auxMode="1920x1080@60"
//          input="/dev/video2"/>
struct MediaSettings {
    std::string mainOutput{};  // the connector; empty: the first with a display
    std::string mainMode{};    // the beginning of the mode that is expected; empty: any
    std::string auxOutput{};   // empty: the second with a display, if there is one
    std::string auxMode{};
    std::string input{};  // empty: the first device that takes a signal
};

MediaSettings ReadMediaSettings(const ominspect::xml::Element& element);

Finding CheckMainOut(const MediaSettings& settings, DisplayProbe& probe);
Finding CheckAuxOut(const MediaSettings& settings, DisplayProbe& probe);
Finding CheckMainIn(const MediaSettings& settings, VideoProbe& probe);

}  // namespace room
