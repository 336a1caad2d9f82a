// What a recording holds is measured and forgotten: nothing of it leaves the process.
#include "media/audio.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>

#include "item.h"
#include "media/sound_level.h"
#include "settings.h"

namespace room {
namespace {

namespace xml = ominspect::xml;

// The device that is meant: the named one, or the first of the kernel's list. Nothing when there is none.
std::optional<SoundDevice> Choose(const std::string& named, Direction direction, SoundProbe& probe) {
    if (!named.empty()) {
        return SoundDevice{named, named, 0};
    }
    const std::vector<SoundDevice> devices = probe.Devices(direction);
    return devices.empty() ? std::nullopt : std::optional(devices.front());
}

std::string NameOf(const SoundDevice& device) {
    return device.name == device.pcm ? device.pcm : device.pcm + " (" + device.name + ")";
}

// What is wrong with a device that could not be opened; nothing when another program uses it: then it is there.
std::optional<Finding> Broken(const std::string& name, const Error& error) {
    switch (error.number) {
        case EBUSY:
            return std::nullopt;
        case ENOENT:
        case ENODEV:
        case ENXIO:
            return Fail(name + ": no such device; check that it is plugged in, and its name in the room's file");
        case EACCES:
        case EPERM:
            return Unknown(name + ": this user may not open it; add it to the group \"audio\"");
        default:
            return Fail(name + " cannot be used: " + error.text + "; unplug it and plug it in again");
    }
}

std::string Decibel(double level) {
    return level <= kNoSignal ? "no signal at all" : std::to_string(std::lround(level)) + " dB";
}

Finding JudgeLevels(const AudioSettings& settings, const std::string& name, const Recording& recording) {
    const double floor = -static_cast<double>(settings.noiseFloor);
    std::string dead;
    double quietest = 0;
    std::size_t count = 0;
    for (std::size_t channel = 0; channel < recording.levels.size(); ++channel) {
        quietest = std::min(quietest, recording.levels[channel]);
        if (recording.levels[channel] < floor) {
            dead += dead.empty() ? "" : ",";
            dead += std::to_string(channel + 1);
            ++count;
        }
    }
    const std::size_t all = recording.levels.size();
    const std::string channels = std::to_string(all) + (all == 1 ? " channel" : " channels");
    if (count == 0) {
        return Success(name + ": " + channels + ", the quietest at " + Decibel(quietest));
    }
    const std::string level = " (" + Decibel(quietest) + ", floor -" + std::to_string(settings.noiseFloor) + ")";
    if (count == all) {
        return Fail(name + ": no signal on any of " + channels + level + "; check mute switch and cable");
    }
    return Fail(name + ": channel " + dead + " of " + std::to_string(all) + " is dead" + level +
                "; check that microphone");
}

bool IsMeant(const AudioSettings& settings, const std::string& control) {
    static constexpr std::array<std::string_view, 4> kUsual{"Master", "PCM", "Speaker", "Front"};
    return settings.control.empty() ? std::find(kUsual.begin(), kUsual.end(), control) != kUsual.end()
                                    : settings.control == control;
}

Finding JudgeVolumes(const AudioSettings& settings, const std::string& mixer, SoundProbe& probe) {
    const auto controls = probe.Volumes(mixer);
    if (!controls) {
        return Unknown("the mixer " + mixer + " cannot be read: " + controls.Failure().text);
    }
    std::optional<unsigned> lowest;
    for (const VolumeControl& control : *controls) {
        if (!IsMeant(settings, control.name)) {
            continue;
        }
        if (control.isMuted) {
            return Fail(control.name + " of mixer " + mixer + " is muted; switch it on");
        }
        if (control.percent < settings.volume) {
            return Fail(control.name + " of mixer " + mixer + " is at " + std::to_string(control.percent) +
                        " %, at least " + std::to_string(settings.volume) + " wanted; turn it up");
        }
        lowest = std::min(lowest.value_or(control.percent), control.percent);
    }
    if (!lowest && !settings.control.empty()) {
        return Fail("mixer " + mixer + " has no control " + settings.control + "; check its name in the room's file");
    }
    return lowest ? Success("volume " + std::to_string(*lowest) + " %") : Unknown("no volume control that is known");
}

struct Line {
    const char* what;
    Direction direction;
    bool (*isIts)(const std::string& jack);
};

bool IsLineOut(const std::string& jack) {
    return jack.starts_with("Line Out") || jack.starts_with("Lineout");
}

bool IsLineIn(const std::string& jack) {
    return jack.starts_with("Line") && !IsLineOut(jack);
}

constexpr Line kLineIn{"line input", Direction::Capture, IsLineIn};
constexpr Line kLineOut{"line output", Direction::Playback, IsLineOut};

Finding CheckLine(const std::string& named, const Line& line, SoundProbe& probe) {
    if (!named.empty()) {
        if (const auto error = probe.Open(named, line.direction)) {
            if (const auto broken = Broken(named, *error)) {
                return *broken;
            }
        }
    }
    const std::vector<Jack> jacks = probe.Jacks();
    const auto isIts = [&line](const Jack& jack) { return line.isIts(jack.name); };
    const auto plugged =
        std::find_if(jacks.begin(), jacks.end(), [&](const Jack& jack) { return isIts(jack) && jack.isPlugged; });
    if (plugged != jacks.end()) {
        return Success(std::string(line.what) + ": a cable is in " + plugged->name);
    }
    const auto any = std::find_if(jacks.begin(), jacks.end(), isIts);
    if (any != jacks.end()) {
        return named.empty() ? Unknown(std::string("no cable in ") + any->name + ", and the room's file asks for none")
                             : Fail(std::string(line.what) + ": no cable in " + any->name + "; plug it in");
    }
    return named.empty() ? Unknown(std::string("no ") + line.what + " is known here, and the room's file names none")
                         : Success(std::string(line.what) + " " + named + " is there; its socket is not told");
}

std::unique_ptr<SoundProbe> Probe(const Settings& settings) {
    return SystemSound(KernelFiles(settings.root));
}

constexpr std::array kItems{
    Item{"aud_MicHwLink_ft", "the microphones' device: there, and it opens",
         [](const Settings& settings) { return CheckMicLink(settings.audio, *Probe(settings)); }},
    Item{"aud_MicAll_ft",
         "every channel of the microphones in a short recording that is never stored: a signal above the noise floor",
         [](const Settings& settings) { return CheckMicSignal(settings.audio, *Probe(settings)); }},
    Item{"aud_SpkQuiet_ft", "the loudspeakers' device: there, it opens, not muted and not at zero in the mixer",
         [](const Settings& settings) { return CheckSpeaker(settings.audio, *Probe(settings)); }},
    Item{"aud_aecCaps_ft",
         "echo cancellation: a device or a control that does it, or the software that the room's file names",
         [](const Settings& settings) { return CheckEchoCancellation(settings.audio, *Probe(settings)); }},
    Item{"aud_lineLocal_ft", "the line input, for sound of the room: its device and its socket",
         [](const Settings& settings) { return CheckLineIn(settings.audio, *Probe(settings)); }},
    Item{"aud_lineRemote_ft", "the line output, for sound of the far end: its device and its socket",
         [](const Settings& settings) { return CheckLineOut(settings.audio, *Probe(settings)); }},
};

}  // namespace

AudioSettings ReadAudioSettings(const xml::Element& element) {
    static constexpr std::array<std::string_view, 10> kKnown{"capture", "channels", "noiseFloor", "playback",
                                                             "mixer",   "control",  "volume",     "echoCancellation",
                                                             "lineIn",  "lineOut"};
    constexpr std::size_t kMaxName = 127;
    constexpr unsigned kMaxChannels = 64;
    constexpr unsigned kMaxFloor = 150;
    constexpr unsigned kMaxVolume = 100;
    const xml::Attributes attributes = xml::ReadAttributes(element, kKnown);
    xml::RefuseChildren(element);
    const auto name = [&](std::string_view attribute) {
        return xml::ReadOptionalName(element, attributes, attribute, kMaxName);
    };
    AudioSettings settings;
    settings.capture = name("capture");
    settings.channels = xml::ReadNumber(attributes, "channels", 0, kMaxChannels);
    settings.noiseFloor = xml::ReadNumber(attributes, "noiseFloor", settings.noiseFloor, kMaxFloor);
    settings.playback = name("playback");
    settings.mixer = name("mixer");
    settings.control = name("control");
    settings.volume = xml::ReadNumber(attributes, "volume", settings.volume, kMaxVolume);
    settings.softwareEcho = xml::ReadWord(attributes, "echoCancellation", {"device", "software"}) == "software";
    settings.lineIn = name("lineIn");
    settings.lineOut = name("lineOut");
    return settings;
}

Finding CheckMicLink(const AudioSettings& settings, SoundProbe& probe) {
    const auto device = Choose(settings.capture, Direction::Capture, probe);
    if (!device) {
        return Unknown("this machine has no device that captures sound, and the room's file names none");
    }
    const auto error = probe.Open(device->pcm, Direction::Capture);
    if (!error) {
        return Success(NameOf(*device) + " is there");
    }
    return Broken(NameOf(*device), *error).value_or(Success(NameOf(*device) + " is there, and in use"));
}

Finding CheckMicSignal(const AudioSettings& settings, SoundProbe& probe) {
    const auto device = Choose(settings.capture, Direction::Capture, probe);
    if (!device) {
        return Unknown("this machine has no device that captures sound, and the room's file names none");
    }
    const auto recording = probe.Record(device->pcm, settings.channels);
    if (recording) {
        return JudgeLevels(settings, NameOf(*device), *recording);
    }
    const Error& error = recording.Failure();
    if (error.number == EINVAL && settings.channels > 0) {
        return Fail(NameOf(*device) + " cannot record " + std::to_string(settings.channels) +
                    " channels: " + error.text);
    }
    return Broken(NameOf(*device), error)
        .value_or(Unknown(NameOf(*device) + " is in use by another program; try again when it is free"));
}

Finding CheckSpeaker(const AudioSettings& settings, SoundProbe& probe) {
    const auto device = Choose(settings.playback, Direction::Playback, probe);
    if (!device) {
        return Unknown("this machine has no device that plays sound, and the room's file names none");
    }
    const auto error = probe.Open(device->pcm, Direction::Playback);
    if (error) {
        if (const auto broken = Broken(NameOf(*device), *error)) {
            return *broken;
        }
    }
    if (settings.mixer.empty() && !settings.playback.empty() && settings.control.empty()) {
        return Unknown(settings.playback + " opens; name its mixer in the room's file to have its volume looked at");
    }
    const std::string mixer = settings.mixer.empty() ? "hw:" + std::to_string(device->card) : settings.mixer;
    Finding volume = JudgeVolumes(settings, mixer, probe);
    if (volume.status == Status::Success) {
        return Success(NameOf(*device) + (error ? " is in use, " : " opens, ") + volume.text);
    }
    return volume;
}

Finding CheckEchoCancellation(const AudioSettings& settings, SoundProbe& probe) {
    if (settings.softwareEcho) {
        return Success("the call's software cancels echoes, as the room's file says");
    }
    const std::vector<std::string> found = probe.EchoCancellers();
    if (!found.empty()) {
        return Success(found.front() + " cancels echoes");
    }
    return Unknown("no device here says that it cancels echoes, and the room's file names no software for it");
}

Finding CheckLineIn(const AudioSettings& settings, SoundProbe& probe) {
    return CheckLine(settings.lineIn, kLineIn, probe);
}

Finding CheckLineOut(const AudioSettings& settings, SoundProbe& probe) {
    return CheckLine(settings.lineOut, kLineOut, probe);
}

std::span<const Item> AudioItems() {
    return kItems;
}

}  // namespace room
