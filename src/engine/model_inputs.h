#pragma once
// The inputs of the encoder and the decoder, padded to a bucket size.

#include <cstdint>
#include <span>
#include <vector>

namespace murmela {

struct EncoderInput {
    std::vector<int32_t> ids;  // the tokens, then 0 up to the bucket
    std::vector<float> mask;   // 1 for each token, then 0
};

// `tokens` must fit in `bucket`; an id outside the 32-bit range is a programming error.
EncoderInput encoderInput(std::span<const int64_t> tokens, int64_t bucket);

struct DecoderInput {
    std::vector<float> x;     // bucket x 257: per frame its token's features and its position
    std::vector<float> mask;  // 1 for each of the frames, then 0
    std::vector<float> last;  // 1 at the last frame only
};

// `features` holds 256 values per token, token-major; `counts` the frames of each token, which
// sum to `frames` <= `bucket`. Frame j of a token lasting d frames carries the position
// (j + 0.5) / d. Padding frames stay zero.
DecoderInput decoderInput(std::span<const float> features, std::span<const int64_t> counts,
                          int64_t frames, int64_t bucket);

}  // namespace murmela
