#include "common/speech_rules.h"

namespace murmela {

int16_t pcm16Sample(float sample) {
    const double scaled = static_cast<double>(clampedSample(sample)) * 32767.0;
    double rounded = std::floor(scaled + 0.5);
    if (rounded - scaled == 0.5 && std::fmod(rounded, 2.0) != 0.0) {
        rounded -= 1.0;
    }
    return static_cast<int16_t>(rounded);
}

}  // namespace murmela
