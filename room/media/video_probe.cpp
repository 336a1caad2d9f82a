#include "media/video_probe.h"

#include <cerrno>

#include <linux/videodev2.h>

namespace room {

std::optional<VideoInfo> InfoOf(VideoDevice& device) {
    v4l2_capability capability{};
    if (device.Ask(VIDIOC_QUERYCAP, &capability) != 0) {
        return std::nullopt;
    }
    const unsigned can =
        (capability.capabilities & V4L2_CAP_DEVICE_CAPS) != 0 ? capability.device_caps : capability.capabilities;
    capability.card[sizeof capability.card - 1] = 0;
    VideoInfo info;
    info.name = reinterpret_cast<const char*>(capability.card);
    info.captures = (can & (V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_VIDEO_CAPTURE_MPLANE)) != 0;
    v4l2_input input{};
    for (; device.Ask(VIDIOC_ENUMINPUT, &input) == 0; ++input.index) {
        info.hasTimings = info.hasTimings || (input.capabilities & V4L2_IN_CAP_DV_TIMINGS) != 0;
        constexpr unsigned kMost = 64;
        if (input.index >= kMost) {
            break;
        }
    }
    return info;
}

ChosenVideo ChooseVideo(VideoProbe& probe, const std::string& named, bool withTimings) {
    ChosenVideo chosen;
    for (const std::string& path : named.empty() ? probe.Devices() : std::vector{named}) {
        auto device = probe.Open(path);
        if (!device) {
            chosen.error = named.empty() ? std::nullopt : std::optional(device.Failure());
            continue;
        }
        const auto info = InfoOf(**device);
        if (named.empty() && (!info || !info->captures || info->hasTimings != withTimings)) {
            continue;
        }
        if (!info || !info->captures) {
            chosen.error = ominspect::OtherError("it is no device that captures pictures");
            continue;
        }
        chosen.path = path;
        chosen.info = *info;
        chosen.device = std::move(*device);
        break;
    }
    return chosen;
}

}  // namespace room
