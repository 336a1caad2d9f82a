// The room's sound as a scripted system shows it.
#include "media/audio.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "machine.h"
#include "media/sound_level.h"

namespace {

using namespace room;
using support::Said;

Error Refusal(int number) {
    return ominspect::SystemError(number);
}

class Scripted : public SoundProbe {
public:
    std::vector<SoundDevice> Devices(Direction direction) override {
        return direction == Direction::Capture ? capture : playback;
    }
    std::optional<Error> Open(const std::string& pcm, Direction direction) override {
        opened.push_back(pcm + (direction == Direction::Capture ? " <" : " >"));
        return refusal;
    }
    ominspect::Result<Recording> Record(const std::string& /*pcm*/, unsigned /*channels*/) override {
        return recording;
    }
    ominspect::Result<std::vector<VolumeControl>> Volumes(const std::string& mixer) override {
        asked = mixer;
        return volumes;
    }
    std::vector<Jack> Jacks() override { return jacks; }
    std::vector<std::string> EchoCancellers() override { return cancellers; }

    std::vector<SoundDevice> capture{{"hw:1,0", "USB Audio", 1}};
    std::vector<SoundDevice> playback{{"hw:0,3", "HDMI 0", 0}};
    std::optional<Error> refusal;
    ominspect::Result<Recording> recording{Recording{{-52.4, -48.0}}};
    ominspect::Result<std::vector<VolumeControl>> volumes{
        std::vector<VolumeControl>{{"Headphone", true, 0}, {"Master", false, 71}, {"PCM", false, 100}}};
    std::vector<Jack> jacks;
    std::vector<std::string> cancellers;
    std::vector<std::string> opened;
    std::string asked;
};

TEST(AudioMicLink, ADeviceThatIsThere) {
    Scripted system;
    EXPECT_EQ(Said(CheckMicLink({}, system)), "success: hw:1,0 (USB Audio) is there");
    EXPECT_EQ(Said(CheckMicLink({.capture = "table"}, system)), "success: table is there");
    EXPECT_EQ(system.opened, (std::vector<std::string>{"hw:1,0 <", "table <"}));
    system.refusal = Refusal(EBUSY);
    EXPECT_EQ(Said(CheckMicLink({}, system)), "success: hw:1,0 (USB Audio) is there, and in use");
}

TEST(AudioMicLink, ADeviceThatIsNotThereOrDoesNotOpen) {
    Scripted system;
    for (const int number : {ENOENT, ENODEV, ENXIO}) {
        system.refusal = Refusal(number);
        EXPECT_EQ(Said(CheckMicLink({.capture = "hw:5,0"}, system)),
                  "fail: hw:5,0: no such device; check that it is plugged in, and its name in the room's file");
    }
    system.refusal = Refusal(EACCES);
    EXPECT_EQ(Said(CheckMicLink({.capture = "hw:5,0"}, system)),
              "unknown: hw:5,0: this user may not open it; add it to the group \"audio\"");
    system.refusal = Refusal(EIO);
    EXPECT_EQ(Said(CheckMicLink({.capture = "hw:5,0"}, system)),
              "fail: hw:5,0 cannot be used: Input/output error; unplug it and plug it in again");
    system.capture.clear();
    EXPECT_EQ(Said(CheckMicLink({}, system)),
              "unknown: this machine has no device that captures sound, and the room's file names none");
}

TEST(AudioMicSignal, EveryChannelAgainstTheNoiseFloor) {
    Scripted system;
    EXPECT_EQ(Said(CheckMicSignal({}, system)), "success: hw:1,0 (USB Audio): 2 channels, the quietest at -52 dB");
    EXPECT_EQ(Said(CheckMicSignal({.noiseFloor = 52}, system)),
              "fail: hw:1,0 (USB Audio): channel 1 of 2 is dead (-52 dB, floor -52); check that microphone");
    system.recording = Recording{{-40, kNoSignal, -41, kNoSignal}};
    EXPECT_EQ(Said(CheckMicSignal({.capture = "table"}, system)),
              "fail: table: channel 2,4 of 4 is dead (no signal at all, floor -75); check that microphone");
    system.recording = Recording{{-90}};
    EXPECT_EQ(Said(CheckMicSignal({.capture = "table"}, system)),
              "fail: table: no signal on any of 1 channel (-90 dB, floor -75); check mute switch and cable");
}

TEST(AudioMicSignal, ADeviceThatCannotBeRecorded) {
    Scripted system;
    system.recording = Refusal(EBUSY);
    EXPECT_EQ(Said(CheckMicSignal({.capture = "table"}, system)),
              "unknown: table is in use by another program; try again when it is free");
    system.recording = Refusal(EINVAL);
    EXPECT_EQ(Said(CheckMicSignal({.capture = "table", .channels = 8}, system)),
              "fail: table cannot record 8 channels: Invalid argument");
    system.recording = ominspect::OtherError("no sound comes");
    EXPECT_EQ(Said(CheckMicSignal({.capture = "table"}, system)),
              "fail: table cannot be used: no sound comes; unplug it and plug it in again");
    system.capture.clear();
    EXPECT_EQ(Said(CheckMicSignal({}, system)),
              "unknown: this machine has no device that captures sound, and the room's file names none");
}

TEST(AudioSpeaker, DeviceAndVolume) {
    Scripted system;
    EXPECT_EQ(Said(CheckSpeaker({}, system)), "success: hw:0,3 (HDMI 0) opens, volume 71 %");
    EXPECT_EQ(system.asked, "hw:0");
    EXPECT_EQ(Said(CheckSpeaker({.volume = 71}, system)), "success: hw:0,3 (HDMI 0) opens, volume 71 %");
    EXPECT_EQ(Said(CheckSpeaker({.volume = 72}, system)),
              "fail: Master of mixer hw:0 is at 71 %, at least 72 wanted; turn it up");
    EXPECT_EQ(Said(CheckSpeaker({.control = "Headphone"}, system)),
              "fail: Headphone of mixer hw:0 is muted; switch it on");
    EXPECT_EQ(Said(CheckSpeaker({.control = "Horn"}, system)),
              "fail: mixer hw:0 has no control Horn; check its name in the room's file");
    system.volumes->at(2).isMuted = true;
    EXPECT_EQ(Said(CheckSpeaker({.playback = "room", .mixer = "hw:2"}, system)),
              "fail: PCM of mixer hw:2 is muted; switch it on");
    system.volumes->at(2) = {"PCM", false, 0};
    EXPECT_EQ(Said(CheckSpeaker({}, system)), "fail: PCM of mixer hw:0 is at 0 %, at least 1 wanted; turn it up");
}

TEST(AudioSpeaker, WhatCannotBeTold) {
    Scripted system;
    EXPECT_EQ(Said(CheckSpeaker({.playback = "room"}, system)),
              "unknown: room opens; name its mixer in the room's file to have its volume looked at");
    system.volumes->resize(1);
    EXPECT_EQ(Said(CheckSpeaker({}, system)), "unknown: no volume control that is known");
    system.volumes = Refusal(ENOENT);
    EXPECT_EQ(Said(CheckSpeaker({}, system)), "unknown: the mixer hw:0 cannot be read: No such file or directory");
    system.refusal = Refusal(ENODEV);
    EXPECT_EQ(Said(CheckSpeaker({}, system)),
              "fail: hw:0,3 (HDMI 0): no such device; check that it is plugged in, and its name in the room's file");
    system.playback.clear();
    EXPECT_EQ(Said(CheckSpeaker({}, system)),
              "unknown: this machine has no device that plays sound, and the room's file names none");
}

TEST(AudioEchoCancellation, ByADeviceOrBySoftware) {
    Scripted system;
    EXPECT_EQ(Said(CheckEchoCancellation({}, system)),
              "unknown: no device here says that it cancels echoes, and the room's file names no software for it");
    EXPECT_EQ(Said(CheckEchoCancellation({.softwareEcho = true}, system)),
              "success: the call's software cancels echoes, as the room's file says");
    system.cancellers = {"Table Phone"};
    EXPECT_EQ(Said(CheckEchoCancellation({}, system)), "success: Table Phone cancels echoes");
}

TEST(AudioLines, JackAndDevice) {
    Scripted system;
    EXPECT_EQ(Said(CheckLineIn({}, system)), "unknown: no line input is known here, and the room's file names none");
    EXPECT_EQ(Said(CheckLineOut({.lineOut = "hw:2,0"}, system)),
              "success: line output hw:2,0 is there; its socket is not told");
    EXPECT_EQ(system.opened, std::vector<std::string>{"hw:2,0 >"});
    system.jacks = {{"Mic Jack", true}, {"Line Jack", false}, {"Line Out Front Jack", true}};
    EXPECT_EQ(Said(CheckLineIn({}, system)), "unknown: no cable in Line Jack, and the room's file asks for none");
    EXPECT_EQ(Said(CheckLineIn({.lineIn = "hw:2,0"}, system)), "fail: line input: no cable in Line Jack; plug it in");
    EXPECT_EQ(Said(CheckLineOut({}, system)), "success: line output: a cable is in Line Out Front Jack");
    system.jacks = {{"Line Jack", true}, {"Line Out Jack", false}};
    EXPECT_EQ(Said(CheckLineIn({}, system)), "success: line input: a cable is in Line Jack");
    EXPECT_EQ(Said(CheckLineOut({}, system)), "unknown: no cable in Line Out Jack, and the room's file asks for none");
    system.refusal = Refusal(ENODEV);
    EXPECT_EQ(Said(CheckLineIn({.lineIn = "hw:2,0"}, system)),
              "fail: hw:2,0: no such device; check that it is plugged in, and its name in the room's file");
}

TEST(AudioSoundLevel, TheMeanIsNotHeard) {
    const std::vector<float> samples{0.5F, 0.1F, 0.5F, -0.1F, 0.5F, 0.1F, 0.5F, -0.1F};
    const std::vector<double> levels = ChannelLevels(samples, 2);
    ASSERT_EQ(levels.size(), 2U);
    EXPECT_EQ(levels[0], -200);
    EXPECT_NEAR(levels[1], -20, 0.01);
    EXPECT_EQ(ChannelLevels({}, 2), (std::vector<double>{-200, -200}));
    EXPECT_TRUE(ChannelLevels(samples, 0).empty());
}

}  // namespace
