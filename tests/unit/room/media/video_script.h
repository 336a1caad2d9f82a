// Video devices that answer ioctls from a script.
#pragma once

#include <cerrno>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <linux/videodev2.h>

#include "media/video_probe.h"

namespace support {

// What a device answers; whatever is not set is refused as an unknown ioctl.
struct VideoScript {
    std::string card = "Room Camera";
    unsigned capabilities = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
    std::vector<v4l2_input> inputs{v4l2_input{}};
    std::map<unsigned, int> controls;
    int timingsError = ENOTTY;
    v4l2_bt_timings timings{};
    unsigned width = 1920;
    unsigned height = 1080;
    std::string format = "MJPG";
    bool hasFormat = true;
    ominspect::Result<unsigned> frames{30U};
};

class ScriptedVideo : public room::VideoDevice {
public:
    explicit ScriptedVideo(const VideoScript& script) : script_(script) {}

    int Ask(unsigned long request, void* argument) override {
        switch (request) {
            case VIDIOC_QUERYCAP: {
                auto& answer = *static_cast<v4l2_capability*>(argument);
                (void)std::snprintf(reinterpret_cast<char*>(answer.card), sizeof answer.card, "%s",
                                    script_.card.c_str());
                answer.capabilities = V4L2_CAP_DEVICE_CAPS | V4L2_CAP_VIDEO_CAPTURE;
                answer.device_caps = script_.capabilities;
                return script_.capabilities == 0 ? ENOTTY : 0;
            }
            case VIDIOC_ENUMINPUT: {
                auto& answer = *static_cast<v4l2_input*>(argument);
                const auto index = answer.index;
                if (index >= script_.inputs.size()) {
                    return EINVAL;
                }
                answer = script_.inputs[index];
                answer.index = index;
                return 0;
            }
            case VIDIOC_G_INPUT:
                *static_cast<int*>(argument) = 0;
                return 0;
            case VIDIOC_QUERY_DV_TIMINGS:
                static_cast<v4l2_dv_timings*>(argument)->bt = script_.timings;
                return script_.timingsError;
            case VIDIOC_G_CTRL: {
                auto& answer = *static_cast<v4l2_control*>(argument);
                const auto found = script_.controls.find(answer.id);
                if (found == script_.controls.end()) {
                    return EINVAL;
                }
                answer.value = found->second;
                return 0;
            }
            case VIDIOC_G_FMT: {
                auto& answer = *static_cast<v4l2_format*>(argument);
                const auto code = [this](std::size_t at) { return static_cast<unsigned>(script_.format.at(at)); };
                answer.fmt.pix.width = script_.width;
                answer.fmt.pix.height = script_.height;
                answer.fmt.pix.pixelformat = v4l2_fourcc(code(0), code(1), code(2), code(3));
                return script_.hasFormat && answer.type == V4L2_BUF_TYPE_VIDEO_CAPTURE ? 0 : EINVAL;
            }
            default:
                return ENOTTY;
        }
    }

    ominspect::Result<unsigned> Frames(std::chrono::milliseconds /*time*/) override { return script_.frames; }

private:
    const VideoScript& script_;
};

class ScriptedVideos : public room::VideoProbe {
public:
    std::vector<std::string> Devices() override {
        std::vector<std::string> paths;
        for (const auto& [path, script] : scripts) {
            paths.push_back(path);
        }
        return paths;
    }
    ominspect::Result<std::unique_ptr<room::VideoDevice>> Open(const std::string& path) override {
        const auto found = scripts.find(path);
        if (refusal != 0 || found == scripts.end()) {
            return ominspect::SystemError(refusal != 0 ? refusal : ENOENT);
        }
        return std::unique_ptr<room::VideoDevice>(std::make_unique<ScriptedVideo>(found->second));
    }

    std::map<std::string, VideoScript> scripts;
    int refusal = 0;
};

}  // namespace support
