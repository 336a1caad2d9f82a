// The mainboard, as the kernel's trees show it.
#pragma once

#include "common/xml_reader.h"
#include "finding.h"
#include "kernel_files.h"

namespace room {

//   <Board maxTemperature="85" fans="2"/>
struct BoardSettings {
    unsigned maxTemperature = 0;  // in degrees Celsius, beside the sensors' own limits; 0: these only
    unsigned fans = 0;            // how many must turn
};

BoardSettings ReadBoardSettings(const ominspect::xml::Element& element);

Finding CheckMainboard(const BoardSettings& settings, const KernelFiles& files);

}  // namespace room
