// The devices themselves. Frames are counted and given back; none is looked into or kept.
#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>

#include "common/fd.h"
#include "media/video_probe.h"

namespace room {
namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kBuffers = 4;

// The device's buffers while it streams.
class Stream {
public:
    explicit Stream(VideoDevice& device) : device_(device) {}
    ~Stream() {
        (void)device_.Ask(VIDIOC_STREAMOFF, &kind_);
        v4l2_requestbuffers none{};
        none.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        none.memory = V4L2_MEMORY_MMAP;
        (void)device_.Ask(VIDIOC_REQBUFS, &none);
    }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    // 0 or the system's error number. The buffers need not be mapped: nobody looks into them.
    int Start() {
        v4l2_requestbuffers request{};
        request.count = kBuffers;
        request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        request.memory = V4L2_MEMORY_MMAP;
        if (const int error = device_.Ask(VIDIOC_REQBUFS, &request); error != 0) {
            return error;
        }
        for (unsigned index = 0; index < request.count; ++index) {
            v4l2_buffer buffer = Buffer();
            buffer.index = index;
            if (const int error = device_.Ask(VIDIOC_QBUF, &buffer); error != 0) {
                return error;
            }
        }
        return device_.Ask(VIDIOC_STREAMON, &kind_);
    }

    // Takes a frame and gives its buffer back; false when there is none.
    bool Take() {
        v4l2_buffer buffer = Buffer();
        const bool taken = device_.Ask(VIDIOC_DQBUF, &buffer) == 0;
        return taken && device_.Ask(VIDIOC_QBUF, &buffer) == 0 && (buffer.flags & V4L2_BUF_FLAG_ERROR) == 0;
    }

private:
    static v4l2_buffer Buffer() {
        v4l2_buffer buffer{};
        buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        buffer.memory = V4L2_MEMORY_MMAP;
        return buffer;
    }

    VideoDevice& device_;
    int kind_ = V4L2_BUF_TYPE_VIDEO_CAPTURE;
};

class Device : public VideoDevice {
public:
    explicit Device(ominspect::UniqueFd fd) : fd_(std::move(fd)) {}

    int Ask(unsigned long request, void* argument) override {
        int result = 0;
        do {
            result = ioctl(fd_.Get(), request, argument);
        } while (result < 0 && errno == EINTR);
        return result < 0 ? errno : 0;
    }

    ominspect::Result<unsigned> Frames(std::chrono::milliseconds time) override {
        Stream stream(*this);
        if (const int error = stream.Start(); error != 0) {
            return ominspect::SystemError(error);
        }
        unsigned frames = 0;
        for (auto end = Clock::now() + time; Clock::now() < end;) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
            pollfd ready{fd_.Get(), POLLIN, 0};
            if (poll(&ready, 1, static_cast<int>(left)) <= 0 || (ready.revents & POLLIN) == 0) {
                break;
            }
            if (stream.Take()) {
                end = frames == 0 ? Clock::now() + time : end;
                ++frames;
            }
        }
        return frames;
    }

private:
    ominspect::UniqueFd fd_;
};

class System : public VideoProbe {
public:
    explicit System(KernelFiles files) : files_(std::move(files)) {}

    std::vector<std::string> Devices() override {
        static constexpr std::string_view kPrefix = "video";
        std::vector<std::string> names = files_.Names("/dev", kPrefix);
        std::erase_if(names, [](const std::string& name) { return !ParseNumber(name.substr(kPrefix.size())); });
        std::sort(names.begin(), names.end(), [](const std::string& left, const std::string& right) {
            return ParseNumber(left.substr(kPrefix.size())) < ParseNumber(right.substr(kPrefix.size()));
        });
        std::transform(names.begin(), names.end(), names.begin(),
                       [](const std::string& name) { return "/dev/" + name; });
        return names;
    }

    ominspect::Result<std::unique_ptr<VideoDevice>> Open(const std::string& path) override {
        ominspect::UniqueFd fd(open(files_.At(path).c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
        if (!fd) {
            return ominspect::SystemError();
        }
        return std::unique_ptr<VideoDevice>(std::make_unique<Device>(std::move(fd)));
    }

private:
    KernelFiles files_;
};

}  // namespace

std::unique_ptr<VideoProbe> SystemVideo(const KernelFiles& files) {
    return std::make_unique<System>(files);
}

}  // namespace room
