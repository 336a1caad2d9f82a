// The settings are read and never changed.
#include "media/camera.h"

#include <array>
#include <cerrno>
#include <cmath>
#include <functional>

#include <linux/videodev2.h>

#include "item.h"
#include "settings.h"

namespace room {
namespace {

namespace xml = ominspect::xml;

// Hands the camera with its name to `look`, or says why there is none.
Finding WithCamera(const CameraSettings& settings, VideoProbe& probe,
                   const std::function<Finding(const std::string& name, VideoDevice& camera)>& look) {
    const ChosenVideo chosen = ChooseVideo(probe, settings.device, false);
    if (chosen.device) {
        return look(chosen.info.name, *chosen.device);
    }
    if (settings.device.empty()) {
        return Unknown("this machine has no camera, and the room's file names none");
    }
    const int number = chosen.error ? chosen.error->number : 0;
    if (number == EACCES || number == EPERM) {
        return Unknown(settings.device + ": this user may not open it; add it to the group \"video\"");
    }
    if (number == EBUSY) {
        return Unknown(settings.device + " is in use by another program, which lets nobody else ask it");
    }
    return Fail(settings.device + ": " + (chosen.error ? chosen.error->text : "") +
                "; check that the camera is plugged in, and its name in the room's file");
}

// A control's value; nothing when the camera does not have it.
std::optional<int> Control(VideoDevice& camera, unsigned id) {
    v4l2_control control{};
    control.id = id;
    return camera.Ask(VIDIOC_G_CTRL, &control) == 0 ? std::optional(control.value) : std::nullopt;
}

Finding JudgeMode(const std::string& name, const char* what, std::optional<bool> isManual, bool manualWanted) {
    if (!isManual) {
        return Unknown(name + " does not tell its " + what);
    }
    const auto word = [](bool manual) { return std::string(manual ? "manual" : "automatic"); };
    const std::string found = name + ": " + what + " is " + word(*isManual);
    return *isManual == manualWanted
               ? Success(found)
               : Fail(found + ", expected " + word(manualWanted) + "; set it (v4l2-ctl, or the camera's program)");
}

// How the picture is turned, in words.
std::string TurnText(bool mirrored, bool upsideDown) {
    if (mirrored) {
        return upsideDown ? "turned by 180 degrees" : "mirrored";
    }
    return upsideDown ? "upside down" : "upright";
}

struct Picture {
    std::string size;
    std::string format;
    double rate = 0;  // 0: not told
};

std::optional<Picture> PictureOf(VideoDevice& camera) {
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (camera.Ask(VIDIOC_G_FMT, &format) != 0) {
        return std::nullopt;
    }
    Picture picture;
    picture.size = std::to_string(format.fmt.pix.width) + 'x' + std::to_string(format.fmt.pix.height);
    constexpr unsigned kByte = 8;
    for (unsigned shift = 0; shift < 4 * kByte; shift += kByte) {
        picture.format += static_cast<char>(format.fmt.pix.pixelformat >> shift & 0x7FU);
    }
    picture.format.erase(picture.format.find_last_not_of(' ') + 1);
    v4l2_streamparm parameters{};
    parameters.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (camera.Ask(VIDIOC_G_PARM, &parameters) == 0 && parameters.parm.capture.timeperframe.numerator > 0) {
        picture.rate = static_cast<double>(parameters.parm.capture.timeperframe.denominator) /
                       parameters.parm.capture.timeperframe.numerator;
    }
    return picture;
}

Finding JudgePicture(const CameraSettings& settings, const std::string& name, VideoDevice& camera) {
    const auto picture = PictureOf(camera);
    if (!picture) {
        return Unknown(name + " does not tell its picture mode");
    }
    const std::string mode = picture->size + ' ' + picture->format;
    if ((!settings.size.empty() && picture->size != settings.size) ||
        (!settings.format.empty() && picture->format != settings.format)) {
        const bool both = !settings.size.empty() && !settings.format.empty();
        return Fail(name + ": " + mode + ", expected " + settings.size + (both ? " " : "") + settings.format +
                    "; set it in the camera's program");
    }
    const auto frames = camera.Frames(std::chrono::milliseconds(1000));
    if (!frames && frames.Failure().number == EBUSY) {
        return Success(name + ": " + mode + ", in use by another program");
    }
    if (!frames) {
        return Fail(name + " gives no pictures: " + frames.Failure().text + "; unplug it and plug it in again");
    }
    if (*frames == 0) {
        return Fail(name + " gives no pictures; unplug it and plug it in again, check its cover");
    }
    const std::string found = name + ": " + mode + ", " + std::to_string(*frames) + " pictures in a second";
    // A dark room makes cameras slower; four fifths are good.
    const double wanted = settings.rate;
    constexpr double kGood = 0.8;
    if (*frames < wanted * kGood) {
        return Fail(found + ", expected " + std::to_string(settings.rate) + "; more light, or another port");
    }
    return Success(found);
}

std::unique_ptr<VideoProbe> Probe(const Settings& settings) {
    return SystemVideo(KernelFiles(settings.root));
}

constexpr std::array kItems{
    Item{"camera_image_inversion_ft", "the camera: there, and its picture mirrored or turned as expected",
         [](const Settings& settings) { return CheckInversion(settings.camera, *Probe(settings)); }},
    Item{"camera_awb_mode_ft", "the camera's white balance: automatic, or as expected",
         [](const Settings& settings) { return CheckWhiteBalance(settings.camera, *Probe(settings)); }},
    Item{"camera_ae_mode_ft", "the camera's exposure: automatic, or as expected",
         [](const Settings& settings) { return CheckExposure(settings.camera, *Probe(settings)); }},
    Item{"camera_pic_mode_ft", "the camera's picture mode as expected, and pictures that come in time",
         [](const Settings& settings) { return CheckPictureMode(settings.camera, *Probe(settings)); }},
};

}  // namespace

CameraSettings ReadCameraSettings(const xml::Element& element) {
    static constexpr std::array<std::string_view, 8> kKnown{"device",   "mirrored", "upsideDown", "whiteBalance",
                                                            "exposure", "size",     "format",     "rate"};
    constexpr std::size_t kMaxName = 63;
    constexpr unsigned kMaxRate = 240;
    const xml::Attributes attributes = xml::ReadAttributes(element, kKnown);
    xml::RefuseChildren(element);
    CameraSettings settings;
    settings.device = xml::ReadOptionalName(element, attributes, "device", kMaxName);
    settings.mirrored = xml::ReadBool(attributes, "mirrored");
    settings.upsideDown = xml::ReadBool(attributes, "upsideDown");
    settings.manualWhiteBalance = xml::ReadWord(attributes, "whiteBalance", {"auto", "manual"}) == "manual";
    settings.manualExposure = xml::ReadWord(attributes, "exposure", {"auto", "manual"}) == "manual";
    settings.size = xml::ReadOptionalName(element, attributes, "size", kMaxName);
    settings.format = xml::ReadOptionalName(element, attributes, "format", 4);
    settings.rate = xml::ReadNumber(attributes, "rate", 0, kMaxRate);
    return settings;
}

Finding CheckInversion(const CameraSettings& settings, VideoProbe& probe) {
    return WithCamera(settings, probe, [&settings](const std::string& name, VideoDevice& camera) {
        const auto mirrored = Control(camera, V4L2_CID_HFLIP);
        const auto upsideDown = Control(camera, V4L2_CID_VFLIP);
        if (!mirrored && !upsideDown) {
            return Unknown(name + " does not tell whether its picture is turned");
        }
        const std::string found = TurnText(mirrored.value_or(0) != 0, upsideDown.value_or(0) != 0);
        const std::string wanted = TurnText(settings.mirrored, settings.upsideDown);
        return found == wanted ? Success(name + ": the picture is " + found)
                               : Fail(name + ": the picture is " + found + ", expected " + wanted +
                                      "; set it in the camera's program");
    });
}

Finding CheckWhiteBalance(const CameraSettings& settings, VideoProbe& probe) {
    return WithCamera(settings, probe, [&settings](const std::string& name, VideoDevice& camera) {
        const auto automatic = Control(camera, V4L2_CID_AUTO_WHITE_BALANCE);
        return JudgeMode(name, "white balance", automatic ? std::optional(*automatic == 0) : std::nullopt,
                         settings.manualWhiteBalance);
    });
}

Finding CheckExposure(const CameraSettings& settings, VideoProbe& probe) {
    return WithCamera(settings, probe, [&settings](const std::string& name, VideoDevice& camera) {
        const auto mode = Control(camera, V4L2_CID_EXPOSURE_AUTO);
        return JudgeMode(name, "exposure", mode ? std::optional(*mode == V4L2_EXPOSURE_MANUAL) : std::nullopt,
                         settings.manualExposure);
    });
}

Finding CheckPictureMode(const CameraSettings& settings, VideoProbe& probe) {
    return WithCamera(settings, probe, [&settings](const std::string& name, VideoDevice& camera) {
        return JudgePicture(settings, name, camera);
    });
}

std::span<const Item> CameraItems() {
    return kItems;
}

}  // namespace room
