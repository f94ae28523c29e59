#include "engine/model_inputs.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string>

#include "common/voice_format.h"
#include "logging/log.h"

namespace murmela {

using model_dimensions::decoderWidth;
using model_dimensions::encoderWidth;

EncoderInput encoderInput(std::span<const int64_t> tokens, int64_t bucket) {
    const int64_t length = static_cast<int64_t>(tokens.size());
    if (length > bucket) {
        programmingError(std::to_string(length) + " tokens in an encoder bucket of " +
                         std::to_string(bucket));
    }
    EncoderInput input{std::vector<int32_t>(static_cast<size_t>(bucket), 0),
                       std::vector<float>(static_cast<size_t>(bucket), 0.0f)};
    for (size_t i = 0; i < tokens.size(); ++i) {
        int64_t id = tokens[i];
        if (id < std::numeric_limits<int32_t>::min() || id > std::numeric_limits<int32_t>::max()) {
            programmingError("token id " + std::to_string(id) + " is outside 32 bits");
        }
        input.ids[i] = static_cast<int32_t>(id);
        input.mask[i] = 1.0f;
    }
    return input;
}

DecoderInput decoderInput(std::span<const float> features, std::span<const int64_t> counts,
                          int64_t frames, int64_t bucket) {
    if (static_cast<int64_t>(features.size()) <
            static_cast<int64_t>(counts.size()) * encoderWidth ||
        frames > bucket || frames < 1) {
        programmingError("decoder input of " + std::to_string(frames) + " frames in " +
                         std::to_string(bucket) + " from " + std::to_string(counts.size()) +
                         " tokens");
    }
    // A bucket from voice.json that no vector can hold fails like any allocation that's too big.
    if (bucket > std::numeric_limits<int64_t>::max() / decoderWidth) {
        throw std::length_error("decoder bucket of " + std::to_string(bucket) + " frames");
    }
    const auto rows = static_cast<size_t>(bucket);
    DecoderInput input{std::vector<float>(rows * decoderWidth, 0.0f),
                       std::vector<float>(rows, 0.0f), std::vector<float>(rows, 0.0f)};
    int64_t frame = 0;
    for (size_t token = 0; token < counts.size(); ++token) {
        const int64_t count = counts[token];
        if (count < 0 || count > frames - frame) {
            programmingError("token frame counts do not sum to " + std::to_string(frames));
        }
        const float* source = features.data() + token * encoderWidth;
        for (int64_t j = 0; j < count; ++j, ++frame) {
            float* row = input.x.data() + frame * decoderWidth;
            std::copy_n(source, encoderWidth, row);
            row[encoderWidth] = (static_cast<float>(j) + 0.5f) / static_cast<float>(count);
        }
    }
    if (frame != frames) {
        programmingError("token frame counts do not sum to " + std::to_string(frames));
    }
    std::fill_n(input.mask.begin(), frames, 1.0f);
    input.last[static_cast<size_t>(frames - 1)] = 1.0f;
    return input;
}

}  // namespace murmela
