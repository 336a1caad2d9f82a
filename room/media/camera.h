// The camera: its settings, and whether pictures come.
#pragma once

#include <string>

#include "common/xml_reader.h"
#include "finding.h"
#include "media/video_probe.h"

namespace room {

//   <Camera device="/dev/video0" mirrored="false" upsideDown="false" whiteBalance="auto" exposure="auto"
//           size="1920x1080" format="MJPG" rate="30"/>
struct CameraSettings {
    std::string device{};  // empty: the first camera
    bool mirrored = false;
    bool upsideDown = false;
    bool manualWhiteBalance = false;
    bool manualExposure = false;
    std::string size{};    // empty: any
    std::string format{};  // empty: any
    unsigned rate = 0;     // pictures in a second; 0: any
};

CameraSettings ReadCameraSettings(const ominspect::xml::Element& element);

Finding CheckInversion(const CameraSettings& settings, VideoProbe& probe);
Finding CheckWhiteBalance(const CameraSettings& settings, VideoProbe& probe);
Finding CheckExposure(const CameraSettings& settings, VideoProbe& probe);
Finding CheckPictureMode(const CameraSettings& settings, VideoProbe& probe);

}  // namespace room
