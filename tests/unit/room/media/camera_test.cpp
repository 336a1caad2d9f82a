// The camera as a scripted device shows it.
#include "media/camera.h"

#include <gtest/gtest.h>

#include "machine.h"
#include "video_script.h"

namespace {

using namespace room;
using support::Said;

class Camera : public testing::Test {
protected:
    support::VideoScript& Script() { return videos_.scripts["/dev/video0"]; }

    support::ScriptedVideos videos_;
};

TEST_F(Camera, WithoutOne) {
    for (const auto check : {CheckInversion, CheckWhiteBalance, CheckExposure, CheckPictureMode}) {
        EXPECT_EQ(Said(check({}, videos_)), "unknown: this machine has no camera, and the room's file names none");
        EXPECT_EQ(
            Said(check({.device = "/dev/video4"}, videos_)),
            "fail: /dev/video4: No such file or directory; check that the camera is plugged in, and its name in the "
            "room's file");
    }
    Script();
    videos_.refusal = EACCES;
    EXPECT_EQ(Said(CheckExposure({.device = "/dev/video0"}, videos_)),
              "unknown: /dev/video0: this user may not open it; add it to the group \"video\"");
    videos_.refusal = EBUSY;
    EXPECT_EQ(Said(CheckExposure({.device = "/dev/video0"}, videos_)),
              "unknown: /dev/video0 is in use by another program, which lets nobody else ask it");
}

TEST_F(Camera, IsTheFirstDeviceThatCapturesAndTakesNoSignalFromElsewhere) {
    Script().capabilities = V4L2_CAP_META_CAPTURE;
    videos_.scripts["/dev/video1"].inputs[0].capabilities = V4L2_IN_CAP_DV_TIMINGS;
    videos_.scripts["/dev/video2"].capabilities = 0;
    videos_.scripts["/dev/video3"].card = "Door Camera";
    videos_.scripts["/dev/video3"].controls[V4L2_CID_EXPOSURE_AUTO] = V4L2_EXPOSURE_APERTURE_PRIORITY;
    EXPECT_EQ(Said(CheckExposure({}, videos_)), "success: Door Camera: exposure is automatic");
    EXPECT_EQ(Said(CheckExposure({.device = "/dev/video0"}, videos_)),
              "fail: /dev/video0: it is no device that captures pictures; check that the camera is plugged in, and its "
              "name in the room's file");
}

TEST_F(Camera, HowThePictureIsTurned) {
    Script();
    EXPECT_EQ(Said(CheckInversion({}, videos_)), "unknown: Room Camera does not tell whether its picture is turned");
    Script().controls = {{V4L2_CID_HFLIP, 0}, {V4L2_CID_VFLIP, 0}};
    EXPECT_EQ(Said(CheckInversion({}, videos_)), "success: Room Camera: the picture is upright");
    EXPECT_EQ(Said(CheckInversion({.upsideDown = true}, videos_)),
              "fail: Room Camera: the picture is upright, expected upside down; set it in the camera's program");
    Script().controls = {{V4L2_CID_HFLIP, 1}};
    EXPECT_EQ(Said(CheckInversion({}, videos_)),
              "fail: Room Camera: the picture is mirrored, expected upright; set it in the camera's program");
    Script().controls = {{V4L2_CID_HFLIP, 1}, {V4L2_CID_VFLIP, 1}};
    EXPECT_EQ(Said(CheckInversion({.mirrored = true, .upsideDown = true}, videos_)),
              "success: Room Camera: the picture is turned by 180 degrees");
}

TEST_F(Camera, WhiteBalance) {
    Script();
    EXPECT_EQ(Said(CheckWhiteBalance({}, videos_)), "unknown: Room Camera does not tell its white balance");
    Script().controls = {{V4L2_CID_AUTO_WHITE_BALANCE, 1}};
    EXPECT_EQ(Said(CheckWhiteBalance({}, videos_)), "success: Room Camera: white balance is automatic");
    EXPECT_EQ(
        Said(CheckWhiteBalance({.manualWhiteBalance = true}, videos_)),
        "fail: Room Camera: white balance is automatic, expected manual; set it (v4l2-ctl, or the camera's program)");
    Script().controls = {{V4L2_CID_AUTO_WHITE_BALANCE, 0}};
    EXPECT_EQ(
        Said(CheckWhiteBalance({}, videos_)),
        "fail: Room Camera: white balance is manual, expected automatic; set it (v4l2-ctl, or the camera's program)");
}

TEST_F(Camera, Exposure) {
    Script();
    EXPECT_EQ(Said(CheckExposure({}, videos_)), "unknown: Room Camera does not tell its exposure");
    for (const int automatic : {0, 2, 3}) {
        Script().controls = {{V4L2_CID_EXPOSURE_AUTO, automatic}};
        EXPECT_EQ(Said(CheckExposure({}, videos_)), "success: Room Camera: exposure is automatic");
    }
    Script().controls = {{V4L2_CID_EXPOSURE_AUTO, 1}};
    EXPECT_EQ(Said(CheckExposure({}, videos_)),
              "fail: Room Camera: exposure is manual, expected automatic; set it (v4l2-ctl, or the camera's program)");
    EXPECT_EQ(Said(CheckExposure({.manualExposure = true}, videos_)), "success: Room Camera: exposure is manual");
}

TEST_F(Camera, PictureModeAndPictures) {
    Script();
    EXPECT_EQ(Said(CheckPictureMode({}, videos_)), "success: Room Camera: 1920x1080 MJPG, 30 pictures in a second");
    EXPECT_EQ(Said(CheckPictureMode({.size = "1280x720"}, videos_)),
              "fail: Room Camera: 1920x1080 MJPG, expected 1280x720; set it in the camera's program");
    EXPECT_EQ(Said(CheckPictureMode({.size = "1920x1080", .format = "YUYV"}, videos_)),
              "fail: Room Camera: 1920x1080 MJPG, expected 1920x1080 YUYV; set it in the camera's program");
    EXPECT_EQ(Said(CheckPictureMode({.size = "1920x1080", .format = "MJPG", .rate = 37}, videos_)),
              "success: Room Camera: 1920x1080 MJPG, 30 pictures in a second");
    EXPECT_EQ(Said(CheckPictureMode({.rate = 38}, videos_)),
              "fail: Room Camera: 1920x1080 MJPG, 30 pictures in a second, expected 38; more light, or another port");
    Script().format = "Y8  ";
    EXPECT_EQ(Said(CheckPictureMode({.format = "Y8"}, videos_)),
              "success: Room Camera: 1920x1080 Y8, 30 pictures in a second");
    Script().hasFormat = false;
    EXPECT_EQ(Said(CheckPictureMode({}, videos_)), "unknown: Room Camera does not tell its picture mode");
}

TEST_F(Camera, PicturesThatDoNotCome) {
    Script().frames = 0U;
    EXPECT_EQ(Said(CheckPictureMode({}, videos_)),
              "fail: Room Camera gives no pictures; unplug it and plug it in again, check its cover");
    Script().frames = ominspect::SystemError(EIO);
    EXPECT_EQ(Said(CheckPictureMode({}, videos_)),
              "fail: Room Camera gives no pictures: Input/output error; unplug it and plug it in again");
    Script().frames = ominspect::SystemError(EBUSY);
    EXPECT_EQ(Said(CheckPictureMode({}, videos_)), "success: Room Camera: 1920x1080 MJPG, in use by another program");
}

TEST(CameraDevices, AreListedByTheirNumbersAndMayBeAnything) {
    const support::Machine machine;
    for (const char* name : {"video10", "video2", "videodev", "video"}) {
        machine.Set(std::string("/dev/") + name, "");
    }
    const auto probe = SystemVideo(machine.Files());
    EXPECT_EQ(probe->Devices(), (std::vector<std::string>{"/dev/video2", "/dev/video10"}));
    EXPECT_EQ(Said(CheckPictureMode({.device = "/dev/video2"}, *probe)),
              "fail: /dev/video2: it is no device that captures pictures; check that the camera is plugged in, and its "
              "name in the room's file");
}

}  // namespace
