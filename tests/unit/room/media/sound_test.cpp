// libasound for real: microphones made of files, by its plugins "file" and "null", and the kernel's lists of devices.
#include "media/sound_probe.h"

#include <alsa/asoundlib.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <random>

#include "machine.h"
#include "media/audio.h"
#include "support/child.h"

namespace {

using namespace room;

int g_overruns = 0;  // that the next readings report; -1: all of them

// Two seconds of two channels, as the plugin "file" reads them.
std::string Sound(const std::function<double(int frame, int channel)>& sample) {
    constexpr int kFrames = 2 * 48000;
    std::string bytes;
    for (int frame = 0; frame < kFrames; ++frame) {
        for (int channel = 0; channel < 2; ++channel) {
            const auto value = static_cast<std::int16_t>(std::lround(sample(frame, channel) * 32767));
            bytes.push_back(static_cast<char>(value & 0xFF));
            bytes.push_back(static_cast<char>(value >> 8));
        }
    }
    return bytes;
}

class Sounds : public testing::Test {
protected:
    void SetUp() override {
        // Noise of -50 dB, as a good microphone has it in a quiet room.
        std::mt19937 random(5);
        std::normal_distribution<double> noise(0, 0.00316);
        // Like speech: a tone that comes and goes, with noise.
        const auto speech = [&](int frame, int) {
            const double time = frame / 48000.0;
            return 0.1 * std::sin(2 * M_PI * 180 * time) * std::fabs(std::sin(2 * M_PI * 3 * time)) + noise(random);
        };
        Write("silence", Sound([](int, int) { return 0; }));
        Write("noise", Sound([&](int, int) { return noise(random); }));
        Write("speech", Sound(speech));
        Write("dead", Sound([&](int, int channel) { return channel == 0 ? noise(random) : 0; }));
        // A channel that is cut, but has a constant voltage on it.
        Write("voltage", Sound([&](int, int channel) { return channel == 1 ? noise(random) : 0.25; }));
        std::string config = "pcm.nothing { type null }\n";
        for (const char* name : {"silence", "noise", "speech", "dead", "voltage"}) {
            config += "pcm." + std::string(name) + " { type file slave.pcm nothing file /dev/null infile \"" +
                      (folder_ / name) + "\" format raw }\n";
        }
        // What the library makes of this never gives any sound, and never comes back.
        config += "pcm.hanging { type rate slave { pcm nothing rate 44100 } converter \"linear\" }\n";
        support::WriteFile(folder_ / "asound.conf", config);
        ASSERT_EQ(setenv("ALSA_CONFIG_PATH", (folder_ / "asound.conf").c_str(), 1), 0);
    }

    void Write(const std::string& name, const std::string& bytes) const { support::WriteFile(folder_ / name, bytes); }

    std::string Signal(const std::string& capture, unsigned channels = 0) const {
        return support::Said(CheckMicSignal({.capture = capture, .channels = channels}, *probe_));
    }

    support::TempFolder folder_;
    support::Machine machine_;
    std::unique_ptr<SoundProbe> probe_ = SystemSound(machine_.Files());
};

TEST_F(Sounds, MicrophonesThatAreWell) {
    EXPECT_EQ(Signal("noise"), "success: noise: 2 channels, the quietest at -50 dB");
    EXPECT_EQ(Signal("speech"), "success: speech: 2 channels, the quietest at -26 dB");
    EXPECT_EQ(Signal("noise", 1), "success: noise: 1 channel, the quietest at -50 dB");
}

TEST_F(Sounds, MicrophonesThatAreDead) {
    EXPECT_EQ(
        Signal("silence"),
        "fail: silence: no signal on any of 2 channels (no signal at all, floor -75); check mute switch and cable");
    EXPECT_EQ(Signal("dead"),
              "fail: dead: channel 2 of 2 is dead (no signal at all, floor -75); check that microphone");
    EXPECT_EQ(Signal("voltage"),
              "fail: voltage: channel 1 of 2 is dead (no signal at all, floor -75); check that microphone");
    EXPECT_EQ(Signal("gone"),
              "fail: gone: no such device; check that it is plugged in, and its name in the room's file");
}

TEST_F(Sounds, AMicrophoneThatLosesSoundIsListenedToOn) {
    g_overruns = 3;
    EXPECT_EQ(Signal("noise"), "success: noise: 2 channels, the quietest at -50 dB");
    EXPECT_EQ(g_overruns, 0);
}

TEST_F(Sounds, AMicrophoneThatOnlyLosesSoundIsGivenUp) {
    g_overruns = -1;
    EXPECT_EQ(Signal("noise"), "fail: noise cannot be used: no sound comes; unplug it and plug it in again");
    g_overruns = 0;
}

TEST_F(Sounds, DevicesThatOpen) {
    EXPECT_EQ(support::Said(CheckMicLink({.capture = "noise"}, *probe_)), "success: noise is there");
    EXPECT_EQ(support::Said(CheckLineOut({.lineOut = "hanging"}, *probe_)),
              "success: line output hanging is there; its socket is not told");
    EXPECT_EQ(support::Said(CheckSpeaker({.playback = "nothing", .mixer = "hw:7"}, *probe_)),
              "unknown: the mixer hw:7 cannot be read: No such file or directory");
    EXPECT_EQ(support::Said(CheckSpeaker({.playback = "gone", .mixer = "hw:7"}, *probe_)),
              "fail: gone: no such device; check that it is plugged in, and its name in the room's file");
}

// Its limit is ten seconds.
TEST_F(Sounds, ADeviceThatHangsIsGivenUpAndHoldsUpNobody) {
    support::WriteFile(folder_ / "room.xml", "<Room><Audio capture=\"hanging\" lineIn=\"hanging\"/></Room>");
    const support::Outcome said =
        support::Run({ROOM_CHECK_PROGRAM, "--config", folder_ / "room.xml", "--root", machine_.Root(), "--once",
                      "aud_MicAll_ft", "aud_MicHwLink_ft", "aud_lineLocal_ft"});
    EXPECT_EQ(said.exitCode, 1);
    EXPECT_NE(said.output.find("aud_MicAll_ft     fail     time limit of 10 s passed\n"), std::string::npos)
        << said.output;
    EXPECT_NE(said.output.find("aud_MicHwLink_ft  success  hanging is there\n"), std::string::npos) << said.output;
    EXPECT_NE(said.output.find("aud_lineLocal_ft  success  line input hanging is there; its socket is not told\n"),
              std::string::npos)
        << said.output;
}

TEST_F(Sounds, TheKernelsListOfDevices) {
    machine_.Set("/proc/asound/pcm",
                 "00-00: ALC892 Analog : ALC892 Analog : playback 1 : capture 1\\n"
                 "00-03: HDMI 0 : HDMI 0 : playback 1\\n"
                 "broken line\\n"
                 "02-00: USB Audio : USB Audio : capture 1");
    const auto names = [&](Direction direction) {
        std::string all;
        for (const SoundDevice& device : probe_->Devices(direction)) {
            all += device.pcm + "=" + device.name + "@" + std::to_string(device.card) + " ";
        }
        return all;
    };
    EXPECT_EQ(names(Direction::Capture), "hw:0,0=ALC892 Analog@0 hw:2,0=USB Audio@2 ");
    EXPECT_EQ(names(Direction::Playback), "hw:0,0=ALC892 Analog@0 hw:0,3=HDMI 0@0 ");
    machine_.Remove("/proc/asound/pcm");
    EXPECT_EQ(names(Direction::Capture), "");
}

TEST_F(Sounds, ASpeakerphoneOnTheUniversalBus) {
    const std::string device = machine_.Root() + "/sys/bus/usb/devices/1-2/";
    support::WriteFile(device + "descriptors", std::string("\x09\x04\x00\x00\x00\x01\x01\x00\x00", 9) +
                                                   std::string("\x0c\x24\x02\x01\x05\x04\x00\x01\x00\x00\x00\x00", 12));
    EXPECT_EQ(support::Said(CheckEchoCancellation({}, *probe_)), "success: USB device 1-2 cancels echoes");
    support::WriteFile(device + "product", "Table Phone\n");
    EXPECT_EQ(support::Said(CheckEchoCancellation({}, *probe_)), "success: Table Phone cancels echoes");
    machine_.Break("/sys/bus/usb/devices/1-2/descriptors");
    EXPECT_EQ(probe_->EchoCancellers(), std::vector<std::string>{});
}

}  // namespace

// Called in the place of libasound's.
snd_pcm_sframes_t snd_pcm_readi(snd_pcm_t* pcm, void* buffer, snd_pcm_uframes_t size) {
    static const auto real = reinterpret_cast<decltype(&snd_pcm_readi)>(dlsym(RTLD_NEXT, "snd_pcm_readi"));
    if (g_overruns == 0) {
        return real(pcm, buffer, size);
    }
    g_overruns -= g_overruns > 0 ? 1 : 0;
    return -EPIPE;
}
