#pragma once
// The fixed sizes the engine is built for; a voice's models must have them.

#include <cstdint>

namespace murmela::model_dimensions {

constexpr int64_t encoderWidth = 256;               // features per token ("enc")
constexpr int64_t decoderWidth = encoderWidth + 1;  // features plus the position value
constexpr int64_t melChannels = 100;
constexpr int64_t nFft = 1024;
constexpr int64_t spectrumBins = nFft / 2 + 1;  // 513
constexpr int64_t hop = 300;                    // samples per frame
constexpr int64_t sampleRate = 24000;

}  // namespace murmela::model_dimensions
