// How loud the channels of a recording are.
#pragma once

#include <span>
#include <vector>

namespace room {

// Nothing is quieter, in dB below full scale.
constexpr double kNoSignal = -200;

// Of interleaved samples between -1 and 1: for each channel the root of the mean square around the mean, in dB below
// full scale.
std::vector<double> ChannelLevels(std::span<const float> samples, unsigned channels);

}  // namespace room
