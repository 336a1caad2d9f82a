// Not looked at yet.
#include "item.h"

namespace room {
namespace {

Finding NotYet(const Settings& /*settings*/) {
    return Unknown("this version does not look at it yet");
}

constexpr Item kItems[] = {
    {"camera_image_inversion_ft", "the camera, and whether its picture is mirrored or turned as expected", NotYet},
    {"camera_awb_mode_ft", "the camera's white balance: automatic or as expected", NotYet},
    {"camera_ae_mode_ft", "the camera's exposure: automatic or as expected", NotYet},
    {"camera_pic_mode_ft", "the camera's picture mode: format, size and rate as expected, and frames that come in time",
     NotYet},
};

}  // namespace

std::span<const Item> CameraItems() {
    return kItems;
}

}  // namespace room
