#pragma once

#include <cstdint>
#include <vector>

namespace murmela {

// What synthesising a chunk of token ids gives.
struct SynthesisResult {
    // Frames per framed token (the boundary tokens included), in order.
    std::vector<int64_t> frameCounts;
    // Mono samples at 24000 Hz, 300 per frame, neither clipped nor scaled.
    std::vector<float> samples;
};

}  // namespace murmela
