// The video devices (V4L2), at the seam of their ioctls. Tests script what a device answers.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/error.h"
#include "kernel_files.h"

namespace room {

class VideoDevice {
public:
    virtual ~VideoDevice() = default;
    // One ioctl; 0 or the system's error number.
    virtual int Ask(unsigned long request, void* argument) = 0;
    // How many frames come within a time that begins with the first of them; none when the first does not come within
    // the same time.
    virtual ominspect::Result<unsigned> Frames(std::chrono::milliseconds time) = 0;
};

class VideoProbe {
public:
    virtual ~VideoProbe() = default;
    // Such as "/dev/video0", in the order of their numbers.
    virtual std::vector<std::string> Devices() = 0;
    virtual ominspect::Result<std::unique_ptr<VideoDevice>> Open(const std::string& path) = 0;
};

std::unique_ptr<VideoProbe> SystemVideo(const KernelFiles& files);

// What is common to the checks of cameras and inputs.

struct VideoInfo {
    std::string name;
    bool captures = false;
    bool hasTimings = false;  // an input that takes a signal from elsewhere, such as HDMI
};

// Nothing when it is no video device.
std::optional<VideoInfo> InfoOf(VideoDevice& device);

struct ChosenVideo {
    std::string path{};
    VideoInfo info{};
    std::unique_ptr<VideoDevice> device{};    // null: there is none, or it could not be opened
    std::optional<ominspect::Error> error{};  // why the named one could not be opened
};

// The named device, or the first that captures and has timings or not, as wanted.
ChosenVideo ChooseVideo(VideoProbe& probe, const std::string& named, bool withTimings);

}  // namespace room
