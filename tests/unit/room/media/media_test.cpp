// The displays as a scripted graphics card shows them, and the input as a scripted device.
#include "media/media.h"

#include <gtest/gtest.h>

#include "machine.h"
#include "video_script.h"

namespace {

using namespace room;
using support::Said;

class Scripted : public DisplayProbe {
public:
    ominspect::Result<std::vector<Connector>> Connectors() override { return connectors; }

    ominspect::Result<std::vector<Connector>> connectors{std::vector<Connector>{
        {"DP-1", false, ""}, {"HDMI-A-1", true, "3840x2160@60"}, {"HDMI-A-2", true, "1920x1080@60"}}};
};

TEST(MediaMainOut, TheFirstDisplayOrTheNamedOne) {
    Scripted card;
    EXPECT_EQ(Said(CheckMainOut({}, card)), "success: HDMI-A-1 sends 3840x2160@60");
    EXPECT_EQ(Said(CheckMainOut({.mainOutput = "HDMI-A-2", .mainMode = "1920x1080"}, card)),
              "success: HDMI-A-2 sends 1920x1080@60");
    EXPECT_EQ(Said(CheckMainOut({.mainMode = "1920x1080@60"}, card)),
              "warn: HDMI-A-1 sends 3840x2160@60, expected 1920x1080@60; check the display settings");
    EXPECT_EQ(Said(CheckMainOut({.mainOutput = "DP-1"}, card)),
              "fail: DP-1: no display connected; check the cable, and that the display is on");
    EXPECT_EQ(Said(CheckMainOut({.mainOutput = "DP-2"}, card)),
              "fail: DP-2: no such connector; there are DP-1, HDMI-A-1, HDMI-A-2");
    card.connectors->at(1).mode.clear();
    EXPECT_EQ(Said(CheckMainOut({}, card)),
              "warn: HDMI-A-1: a display, but no picture is sent to it; wake the computer, check its display settings");
    card.connectors->resize(1);
    EXPECT_EQ(Said(CheckMainOut({}, card)),
              "fail: no display connected to any connector; check the cables, and that a display is on");
}

TEST(MediaMainOut, WithoutACard) {
    Scripted card;
    card.connectors->clear();
    EXPECT_EQ(Said(CheckMainOut({}, card)), "unknown: this machine has no graphics card with connectors");
    EXPECT_EQ(Said(CheckAuxOut({}, card)), "unknown: this machine has no graphics card with connectors");
    card.connectors = ominspect::SystemError(EACCES);
    EXPECT_EQ(Said(CheckMainOut({}, card)),
              "unknown: the graphics card cannot be asked: Permission denied; this user needs the group \"video\"");
}

TEST(MediaAuxOut, TheSecondDisplayOrTheNamedOne) {
    Scripted card;
    EXPECT_EQ(Said(CheckAuxOut({}, card)), "success: HDMI-A-2 sends 1920x1080@60");
    EXPECT_EQ(Said(CheckAuxOut({.mainOutput = "HDMI-A-2"}, card)), "success: HDMI-A-1 sends 3840x2160@60");
    EXPECT_EQ(Said(CheckAuxOut({.auxMode = "3840"}, card)),
              "warn: HDMI-A-2 sends 1920x1080@60, expected 3840; check the display settings");
    EXPECT_EQ(Said(CheckAuxOut({.auxOutput = "DP-1"}, card)),
              "fail: DP-1: no display connected; check the cable, and that the display is on");
    card.connectors->resize(2);
    EXPECT_EQ(Said(CheckAuxOut({}, card)), "unknown: no second display, and the room's file names none");
}

class MediaMainIn : public testing::Test {
protected:
    MediaMainIn() {
        support::VideoScript& script = Script();
        script.card = "HDMI Input";
        script.inputs[0].capabilities = V4L2_IN_CAP_DV_TIMINGS;
        script.timingsError = 0;
        script.timings.width = 1920;
        script.timings.height = 1080;
        script.timings.hfrontporch = 280;
        script.timings.vfrontporch = 45;
        script.timings.pixelclock = 148500000;
    }
    support::VideoScript& Script() { return videos_.scripts["/dev/video2"]; }

    support::ScriptedVideos videos_;
};

TEST_F(MediaMainIn, ASignal) {
    videos_.scripts["/dev/video0"];
    EXPECT_EQ(Said(CheckMainIn({}, videos_)), "success: /dev/video2 (HDMI Input) gets 1920x1080@60");
}

TEST_F(MediaMainIn, NoSignalOrABadOne) {
    for (const auto& [error, said] :
         {std::pair(ENOLINK, "fail: /dev/video2 (HDMI Input): no signal; check the cable, and that the source is on"),
          std::pair(
              ENOLCK,
              "fail: /dev/video2 (HDMI Input): a signal that is not stable; check the cable, or use a shorter one"),
          std::pair(
              ERANGE,
              "fail: /dev/video2 (HDMI Input): a signal that it cannot take; choose a lower resolution at the source"),
          std::pair(EIO, "unknown: /dev/video2 (HDMI Input) cannot be asked for its signal: Input/output error"),
          std::pair(ENOTTY,
                    "unknown: /dev/video2 (HDMI Input) is there, but does not tell whether it gets a signal")}) {
        Script().timingsError = error;
        EXPECT_EQ(Said(CheckMainIn({}, videos_)), said);
    }
    Script().inputs[0].status = V4L2_IN_ST_NO_SIGNAL;
    EXPECT_EQ(Said(CheckMainIn({}, videos_)),
              "fail: /dev/video2 (HDMI Input): no signal; check the cable, and that the source is on");
    Script().inputs[0].status = V4L2_IN_ST_NO_POWER;
    EXPECT_EQ(Said(CheckMainIn({}, videos_)), "fail: /dev/video2 (HDMI Input): no power; check the source");
}

TEST_F(MediaMainIn, WithoutOne) {
    EXPECT_EQ(
        Said(CheckMainIn({.input = "/dev/video7"}, videos_)),
        "fail: /dev/video7: No such file or directory; check that it is plugged in, and its name in the room's file");
    videos_.refusal = EPERM;
    EXPECT_EQ(Said(CheckMainIn({.input = "/dev/video2"}, videos_)),
              "unknown: /dev/video2: this user may not open it; add it to the group \"video\"");
    videos_.scripts.clear();
    EXPECT_EQ(Said(CheckMainIn({}, videos_)), "unknown: no input for a picture here, and the room's file names none");
}

}  // namespace
