// The system's own answers, by libasound and the kernel's lists. libasound's complaints on standard error are silenced:
// what matters of them is in the error codes.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <thread>
#include <utility>

#include <alsa/asoundlib.h>

#include "media/sound_level.h"
#include "media/sound_probe.h"
#include "media/usb_audio.h"

namespace room {
namespace {

Error AlsaError(int code) {
    return {ominspect::ErrorCode::kInternal, snd_strerror(code), -code};
}

void Silence(const char* /*file*/, int /*line*/, const char* /*function*/, int /*code*/, const char* /*format*/, ...) {}

using Pcm = std::unique_ptr<snd_pcm_t, int (*)(snd_pcm_t*)>;
using Control = std::unique_ptr<snd_ctl_t, int (*)(snd_ctl_t*)>;
using Mixer = std::unique_ptr<snd_mixer_t, int (*)(snd_mixer_t*)>;

Result<Pcm> OpenPcm(const std::string& name, Direction direction) {
    snd_pcm_t* pcm = nullptr;
    const int code = snd_pcm_open(&pcm, name.c_str(),
                                  direction == Direction::Capture ? SND_PCM_STREAM_CAPTURE : SND_PCM_STREAM_PLAYBACK,
                                  SND_PCM_NONBLOCK);
    if (code < 0) {
        return AlsaError(code);
    }
    return Pcm(pcm, snd_pcm_close);
}

// What a recording is made with.
struct Format {
    snd_pcm_format_t sample = SND_PCM_FORMAT_S16;
    unsigned channels = 0;
    unsigned rate = 48000;
};

// A device that converts takes any number of channels; then there are two.
constexpr unsigned kMostChannels = 64;

unsigned ChannelsOf(const snd_pcm_hw_params_t* parameters) {
    unsigned most = 0;
    (void)snd_pcm_hw_params_get_channels_max(parameters, &most);
    return most == 0 || most > kMostChannels ? 2 : most;
}

// Sets the device up; 0 or a negative code.
int SetUp(snd_pcm_t* pcm, Format& format) {
    snd_pcm_hw_params_t* parameters = nullptr;
    snd_pcm_hw_params_alloca(&parameters);
    int code = snd_pcm_hw_params_any(pcm, parameters);
    if (code >= 0) {
        code = snd_pcm_hw_params_set_access(pcm, parameters, SND_PCM_ACCESS_RW_INTERLEAVED);
    }
    for (const snd_pcm_format_t sample : {SND_PCM_FORMAT_S32, SND_PCM_FORMAT_S16}) {
        if (snd_pcm_hw_params_test_format(pcm, parameters, sample) == 0) {
            format.sample = sample;
        }
    }
    if (code >= 0) {
        code = snd_pcm_hw_params_set_format(pcm, parameters, format.sample);
    }
    if (format.channels == 0) {
        format.channels = ChannelsOf(parameters);
    }
    if (code >= 0) {
        code = snd_pcm_hw_params_set_channels(pcm, parameters, format.channels);
    }
    if (code >= 0) {
        code = snd_pcm_hw_params_set_rate_near(pcm, parameters, &format.rate, nullptr);
    }
    return code < 0 ? code : snd_pcm_hw_params(pcm, parameters);
}

template <typename Sample>
void Append(std::vector<float>& out, const std::vector<std::uint8_t>& bytes, std::size_t samples) {
    const auto* from = reinterpret_cast<const Sample*>(bytes.data());
    const auto full = static_cast<double>(std::numeric_limits<Sample>::max());
    std::transform(from, from + samples, std::back_inserter(out),
                   [full](Sample sample) { return static_cast<float>(static_cast<double>(sample) / full); });
}

// A second of the device's sound; the first part of it, in which many devices switch themselves on, is dropped.
Result<std::vector<float>> ReadSecond(snd_pcm_t* pcm, const Format& format) {
    constexpr std::chrono::milliseconds kPatience{4000};
    constexpr std::chrono::milliseconds kPause{5};
    constexpr std::size_t kBlock = 1024;
    const std::size_t wanted = static_cast<std::size_t>(format.rate) * 5 / 4;
    std::vector<float> samples;
    std::vector<std::uint8_t> block(kBlock * format.channels * sizeof(std::int32_t));
    const auto end = std::chrono::steady_clock::now() + kPatience;
    for (std::size_t frames = 0; frames < wanted;) {
        snd_pcm_sframes_t got = snd_pcm_readi(pcm, block.data(), kBlock);
        if (got > 0) {
            const std::size_t count = static_cast<std::size_t>(got) * format.channels;
            format.sample == SND_PCM_FORMAT_S16 ? Append<std::int16_t>(samples, block, count)
                                                : Append<std::int32_t>(samples, block, count);
            frames += static_cast<std::size_t>(got);
            continue;
        }
        if (std::chrono::steady_clock::now() >= end) {
            return ominspect::OtherError("no sound comes");
        }
        if (got < 0 && got != -EAGAIN && snd_pcm_recover(pcm, static_cast<int>(got), 1) < 0) {
            return AlsaError(static_cast<int>(got));
        }
        // The library's own wait may never end where a device says that it is ready, and has nothing.
        std::this_thread::sleep_for(kPause);
    }
    const std::size_t dropped = std::size_t{format.rate} / 4 * format.channels;
    samples.erase(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(dropped));
    return samples;
}

// A control of the card: its name in its interface, and whether it is on.
struct Switch {
    std::string name;
    bool isOn = false;
};

std::vector<Switch> Switches(const std::string& card, snd_ctl_elem_iface_t interface) {
    snd_ctl_t* opened = nullptr;
    if (snd_ctl_open(&opened, card.c_str(), SND_CTL_NONBLOCK) < 0) {
        return {};
    }
    const Control control(opened, snd_ctl_close);
    snd_ctl_elem_list_t* list = nullptr;
    snd_ctl_elem_list_alloca(&list);
    if (snd_ctl_elem_list(opened, list) < 0 ||
        snd_ctl_elem_list_alloc_space(list, snd_ctl_elem_list_get_count(list)) < 0) {
        return {};
    }
    std::vector<Switch> switches;
    (void)snd_ctl_elem_list(opened, list);
    for (unsigned at = 0; at < snd_ctl_elem_list_get_used(list); ++at) {
        snd_ctl_elem_id_t* id = nullptr;
        snd_ctl_elem_info_t* info = nullptr;
        snd_ctl_elem_value_t* value = nullptr;
        snd_ctl_elem_id_alloca(&id);
        snd_ctl_elem_info_alloca(&info);
        snd_ctl_elem_value_alloca(&value);
        snd_ctl_elem_list_get_id(list, at, id);
        snd_ctl_elem_info_set_id(info, id);
        snd_ctl_elem_value_set_id(value, id);
        if (snd_ctl_elem_list_get_interface(list, at) == interface && snd_ctl_elem_info(opened, info) == 0 &&
            snd_ctl_elem_info_get_type(info) == SND_CTL_ELEM_TYPE_BOOLEAN && snd_ctl_elem_read(opened, value) == 0) {
            switches.push_back({snd_ctl_elem_list_get_name(list, at), snd_ctl_elem_value_get_boolean(value, 0) != 0});
        }
    }
    snd_ctl_elem_list_free_space(list);
    return switches;
}

VolumeControl ReadVolume(snd_mixer_elem_t* element) {
    VolumeControl control{.name = snd_mixer_selem_get_name(element)};
    const bool hasSwitch = snd_mixer_selem_has_playback_switch(element) != 0;
    bool isOn = !hasSwitch;
    long lowest = 0;
    long highest = 0;
    long loudest = 0;
    (void)snd_mixer_selem_get_playback_volume_range(element, &lowest, &highest);
    loudest = lowest;
    for (int channel = 0; channel <= SND_MIXER_SCHN_LAST; ++channel) {
        const auto one = static_cast<snd_mixer_selem_channel_id_t>(channel);
        int on = 0;
        long volume = lowest;
        if (snd_mixer_selem_has_playback_channel(element, one) == 0) {
            continue;
        }
        isOn = isOn || (snd_mixer_selem_get_playback_switch(element, one, &on) == 0 && on != 0);
        if (snd_mixer_selem_get_playback_volume(element, one, &volume) == 0) {
            loudest = std::max(loudest, volume);
        }
    }
    control.isMuted = !isOn;
    if (highest > lowest) {
        control.percent = static_cast<unsigned>((loudest - lowest) * 100 / (highest - lowest));
    }
    return control;
}

class System : public SoundProbe {
public:
    explicit System(KernelFiles files) : files_(std::move(files)) { (void)snd_lib_error_set_handler(Silence); }

    // Lines such as "00-03: HDMI 0 : HDMI 0 : playback 1 : capture 1".
    std::vector<SoundDevice> Devices(Direction direction) override {
        const std::string_view word = direction == Direction::Capture ? ": capture" : ": playback";
        std::vector<SoundDevice> devices;
        for (const std::string& line : files_.Lines("/proc/asound/pcm")) {
            const auto card = ParseNumber(line.substr(0, line.find('-')));
            const std::size_t colon = line.find(':');
            if (!card || colon == std::string::npos || line.find('-') > colon || line.find(word) == std::string::npos) {
                continue;
            }
            const auto device = ParseNumber(line.substr(line.find('-') + 1, colon - line.find('-') - 1));
            const std::size_t begin = std::min(colon + 2, line.size());
            const std::string name = line.substr(begin, line.find(" :", begin) - begin);
            devices.push_back({"hw:" + std::to_string(*card) + ',' + std::to_string(device.value_or(0)), name,
                               static_cast<int>(*card)});
        }
        return devices;
    }

    std::optional<Error> Open(const std::string& pcm, Direction direction) override {
        const auto opened = OpenPcm(pcm, direction);
        return opened ? std::nullopt : std::optional(opened.Failure());
    }

    Result<Recording> Record(const std::string& pcm, unsigned channels) override {
        const auto opened = OpenPcm(pcm, Direction::Capture);
        if (!opened) {
            return opened.Failure();
        }
        Format format{.channels = channels};
        if (const int code = SetUp(opened->get(), format); code < 0) {
            return AlsaError(code);
        }
        if (const int code = snd_pcm_start(opened->get()); code < 0) {
            return AlsaError(code);
        }
        const auto samples = ReadSecond(opened->get(), format);
        if (!samples) {
            return samples.Failure();
        }
        return Recording{ChannelLevels(*samples, format.channels)};
    }

    Result<std::vector<VolumeControl>> Volumes(const std::string& mixer) override {
        snd_mixer_t* opened = nullptr;
        if (const int code = snd_mixer_open(&opened, 0); code < 0) {
            return AlsaError(code);
        }
        const Mixer closed(opened, snd_mixer_close);
        for (const int code : {snd_mixer_attach(opened, mixer.c_str()),
                               snd_mixer_selem_register(opened, nullptr, nullptr), snd_mixer_load(opened)}) {
            if (code < 0) {
                return AlsaError(code);
            }
        }
        std::vector<VolumeControl> controls;
        for (snd_mixer_elem_t* element = snd_mixer_first_elem(opened); element != nullptr;
             element = snd_mixer_elem_next(element)) {
            const bool isPlayback =
                snd_mixer_selem_has_playback_switch(element) != 0 || snd_mixer_selem_has_playback_volume(element) != 0;
            if (isPlayback && snd_mixer_selem_is_active(element) != 0) {
                controls.push_back(ReadVolume(element));
            }
        }
        return controls;
    }

    std::vector<Jack> Jacks() override {
        std::vector<Jack> jacks;
        for (const std::string& card : Cards()) {
            for (const Switch& found : Switches(card, SND_CTL_ELEM_IFACE_CARD)) {
                if (found.name.ends_with(" Jack")) {
                    jacks.push_back({found.name, found.isOn});
                }
            }
        }
        return jacks;
    }

    std::vector<std::string> EchoCancellers() override {
        std::vector<std::string> found;
        const std::string folder = "/sys/bus/usb/devices/";
        for (const std::string& device : files_.Names(folder)) {
            const std::string path = folder + device;
            const auto bytes = files_.Bytes(path + "/descriptors");
            if (bytes && CancelsEcho({reinterpret_cast<const std::uint8_t*>(bytes->data()), bytes->size()})) {
                found.push_back(files_.Text(path + "/product").value_or("USB device " + device));
            }
        }
        for (const std::string& card : Cards()) {
            for (const Switch& control : Switches(card, SND_CTL_ELEM_IFACE_MIXER)) {
                if (control.isOn && control.name.find("Echo") != std::string::npos) {
                    found.push_back(control.name);
                }
            }
        }
        return found;
    }

private:
    [[nodiscard]] std::vector<std::string> Cards() const {
        std::vector<std::string> cards;
        for (const std::string& name : files_.Names("/proc/asound", "card")) {
            if (const auto number = ParseNumber(name.substr(4))) {
                cards.push_back("hw:" + std::to_string(*number));
            }
        }
        return cards;
    }

    KernelFiles files_;
};

}  // namespace

std::unique_ptr<SoundProbe> SystemSound(const KernelFiles& files) {
    return std::make_unique<System>(files);
}

}  // namespace room
