// What the checks of the sound ask the system for. Tests answer instead of it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "common/error.h"
#include "kernel_files.h"

namespace room {

enum class Direction { Capture, Playback };

// A device for one direction, as the kernel numbers it: "hw:0,0" with a name for people.
struct SoundDevice {
    std::string pcm{};
    std::string name{};
    int card = 0;
};

// An error of a device: `number` is the system's.
using ominspect::Error;
using ominspect::Result;

// How loud a channel of a recording is, in dB below full scale; its mean is not heard and does not count.
struct Recording {
    std::vector<double> levels;  // one for each channel
};

struct VolumeControl {
    std::string name{};
    bool isMuted = false;
    unsigned percent = 100;
};

struct Jack {
    std::string name{};
    bool isPlugged = false;
};

class SoundProbe {
public:
    virtual ~SoundProbe() = default;
    virtual std::vector<SoundDevice> Devices(Direction direction) = 0;
    // Opens it, and closes it again.
    virtual std::optional<Error> Open(const std::string& pcm, Direction direction) = 0;
    // About a second; 0 channels for as many as the device has.
    virtual Result<Recording> Record(const std::string& pcm, unsigned channels) = 0;
    // The playback volumes of a mixer such as "hw:0" or "default".
    virtual Result<std::vector<VolumeControl>> Volumes(const std::string& mixer) = 0;
    // The sockets of all cards that tell whether something is plugged in.
    virtual std::vector<Jack> Jacks() = 0;
    // What cancels echoes: names of devices and controls that are on.
    virtual std::vector<std::string> EchoCancellers() = 0;
};

// The system itself; `files` are for the lists of devices in /proc/asound and /sys/bus/usb.
std::unique_ptr<SoundProbe> SystemSound(const KernelFiles& files);

}  // namespace room
