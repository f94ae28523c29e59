#pragma once
// Token durations as the decoder counts them: frames per token and their sum.

#include <cstdint>
#include <span>
#include <vector>

namespace murmela {

// The decoder frames of each token: v = (e^logd - 1) / speed in 32-bit float, rounded to
// nearest (ties to even), at least 1, and doubled because the decoder runs at twice the rate
// of the durations. A non-finite v or one past the 64-bit range is a programming error.
std::vector<int64_t> frameCounts(std::span<const float> logDurations, double speed);

// The sum of the counts; an overflow is a programming error.
int64_t totalFrames(std::span<const int64_t> counts);

}  // namespace murmela
