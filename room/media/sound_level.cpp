#include "media/sound_level.h"

#include <algorithm>
#include <cmath>

namespace room {

std::vector<double> ChannelLevels(std::span<const float> samples, unsigned channels) {
    std::vector<double> levels;
    const std::size_t frames = channels == 0 ? 0 : samples.size() / channels;
    for (std::size_t channel = 0; channel < channels; ++channel) {
        double sum = 0;
        double squares = 0;
        for (std::size_t frame = 0; frame < frames; ++frame) {
            const double sample = samples[frame * channels + channel];
            sum += sample;
            squares += sample * sample;
        }
        const double count = static_cast<double>(std::max<std::size_t>(frames, 1));
        const double mean = sum / count;
        const double power = squares / count - mean * mean;
        constexpr double kLeast = 1e-20;
        constexpr double kDecibel = 10;
        levels.push_back(power > kLeast ? kDecibel * std::log10(power) : kNoSignal);
    }
    return levels;
}

}  // namespace room
