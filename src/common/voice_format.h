#pragma once
// What a voice is, below any one layer: the fixed sizes its models must have, the sample rate
// of everything it says, and how its JSON files' numbers are read.

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>

namespace murmela {

namespace model_dimensions {

constexpr int64_t encoderWidth = 256;               // features per token ("enc")
constexpr int64_t decoderWidth = encoderWidth + 1;  // features plus the position value
constexpr int64_t melChannels = 100;
constexpr int64_t nFft = 1024;
constexpr int64_t spectrumBins = nFft / 2 + 1;  // 513
constexpr int64_t hop = 300;                    // samples per frame
constexpr int64_t sampleRate = 24000;           // mono samples per second, everywhere

}  // namespace model_dimensions

using model_dimensions::sampleRate;

// A JSON number through its integer value: fractions are cut off (24000.0 counts as 24000) and
// values beyond the 64-bit range are held at its ends. Nothing for anything but a number
// (booleans included).
std::optional<int64_t> integerValue(const nlohmann::json& value);

}  // namespace murmela
