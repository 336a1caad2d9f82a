// The sound of the room: microphones, loudspeakers, echo cancellation, lines in and out.
#pragma once

#include <string>
#include <vector>

#include "common/xml_reader.h"
#include "finding.h"
#include "media/sound_probe.h"

namespace room {

//   <Audio capture="hw:1,0" channels="4" noiseFloor="75" playback="hw:0,0" mixer="hw:0" control="Master" volume="10"
//          echoCancellation="software" lineIn="hw:2,0" lineOut="hw:2,0"/>
struct AudioSettings {
    std::string capture{};      // the microphones; empty: the first device that captures
    unsigned channels = 0;      // of the microphones; 0: as many as the device has
    unsigned noiseFloor = 75;   // in dB below full scale; a channel that is quieter carries no signal
    std::string playback{};     // the loudspeakers; empty: the first device that plays
    std::string mixer{};        // empty: that of the loudspeakers' card
    std::string control{};      // the mixer's control; empty: those that usually stand for the loudspeakers
    unsigned volume = 1;        // the least, in percent
    bool softwareEcho = false;  // the call's software cancels the echoes itself
    std::string lineIn{};       // empty: none is expected
    std::string lineOut{};
};

AudioSettings ReadAudioSettings(const ominspect::xml::Element& element);

Finding CheckMicLink(const AudioSettings& settings, SoundProbe& probe);
Finding CheckMicSignal(const AudioSettings& settings, SoundProbe& probe);
Finding CheckSpeaker(const AudioSettings& settings, SoundProbe& probe);
Finding CheckEchoCancellation(const AudioSettings& settings, SoundProbe& probe);
Finding CheckLineIn(const AudioSettings& settings, SoundProbe& probe);
Finding CheckLineOut(const AudioSettings& settings, SoundProbe& probe);

}  // namespace room
