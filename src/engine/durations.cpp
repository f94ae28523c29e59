#include "engine/durations.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "logging/log.h"

namespace murmela {

std::vector<int64_t> frameCounts(std::span<const float> logDurations, double speed) {
    const float s = static_cast<float>(speed);
    std::vector<int64_t> counts;
    counts.reserve(logDurations.size());
    for (float logd : logDurations) {
        float v = (std::exp(logd) - 1.0f) / s;
        if (!std::isfinite(v)) {
            programmingError("duration " + std::to_string(logd) + " at speed " +
                             std::to_string(speed) + " is not finite");
        }
        float rounded = std::nearbyint(v);  // the default rounding mode: to nearest, ties to even
        // Doubling must fit too, so the bound is 2^62 rather than 2^63.
        if (rounded < -0x1p63f || rounded >= 0x1p62f) {
            programmingError("duration " + std::to_string(v) + " frames is out of range");
        }
        int64_t n = std::max(static_cast<int64_t>(rounded), int64_t{1});
        counts.push_back(2 * n);
    }
    return counts;
}

int64_t totalFrames(std::span<const int64_t> counts) {
    int64_t total = 0;
    for (int64_t count : counts) {
        if (__builtin_add_overflow(total, count, &total)) {
            programmingError("the frame count overflows");
        }
    }
    return total;
}

}  // namespace murmela
