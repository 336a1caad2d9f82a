// What is expected in this room, as /etc/ominspect/room.xml has it. Everything may be left out.
//
//   <Room>
//       <Board/> <Network/> <Audio/> <Media/> <Camera/> <Call/>   what each subject expects
//   </Room>
//
// Anything unknown in the file, except comments, is an error.
#pragma once

#include <string>
#include <string_view>

#include "board.h"
#include "call/call_settings.h"
#include "common/error.h"
#include "extra.h"
#include "media/audio.h"
#include "media/camera.h"
#include "media/media.h"
#include "network/network.h"

namespace room {

struct Settings {
    std::string root;  // the folder below which /sys, /proc and /dev are looked for; empty for the machine's own
    BoardSettings board;
    NetworkSettings network;
    AudioSettings audio;
    MediaSettings media;
    CameraSettings camera;
    CallSettings call;
    ExtraSettings extra;
};

// Parses a text. The error of a mistake is "line N: what is wrong".
ominspect::Result<Settings> ParseSettings(std::string_view text);

// The same for a file; the error begins with the path.
ominspect::Result<Settings> LoadSettings(const std::string& path);

}  // namespace room
