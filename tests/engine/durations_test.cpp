// Token durations to decoder frames.

#include "engine/durations.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace murmela {
namespace {

// A log-duration whose v at speed 1/8 is exactly `v`. Near log(1 + v / 8) exp's steps are finer
// than the floats around its result, so some float there gives exactly 1 + v / 8.
float exactLogDuration(float v) {
    const float target = 1.0f + v / 8;
    float below = std::log(target), above = below;
    for (int step = 0; step < 100 && std::exp(below) != target; ++step) {
        if (std::exp(above) == target) {
            return above;
        }
        below = std::nextafter(below, -INFINITY);
        above = std::nextafter(above, INFINITY);
    }
    return below;
}

TEST(FrameCounts, DurationsOverSpeedRoundedHalfToEvenAtLeastOneAndDoubled) {
    const struct {
        float logDuration;
        double speed;
        int64_t frames;
    } cases[] = {
        {0.0f, 1.0, 2},  // v = 0 rounds to 0 and is raised to 1; a negative v likewise
        {-3.0f, 1.0, 2},
        {std::log(1.2f), 1.0, 2},
        {std::log(7.0f), 1.0, 12},  // v = 6
        {std::log(7.0f), 2.0, 6},
        {std::log(7.0f), 0.75, 16},
        {std::log(3.5f), 2.0, 2},            // 1.25 -> 1
        {exactLogDuration(2.5f), 0.125, 4},  // half-up rounding would give 3 and 4
        {exactLogDuration(3.5f), 0.125, 8},
    };
    for (const auto& each : cases) {
        const std::vector<float> one = {each.logDuration};
        EXPECT_EQ(frameCounts(one, each.speed), std::vector<int64_t>{each.frames})
            << each.logDuration << " at " << each.speed;
    }
    EXPECT_EQ(frameCounts(std::vector<float>{0.0f, std::log(4.0f)}, 1.0),
              (std::vector<int64_t>{2, 6}));  // one count per token, in order
    EXPECT_EQ(totalFrames(std::vector<int64_t>{2, 6, 2, 4}), 14);
}

TEST(DurationsDeathTest, ImpossibleValuesStopTheProgram) {
    auto counts = [](float logDuration, double speed) {
        return frameCounts(std::vector<float>{logDuration}, speed);
    };
    EXPECT_DEATH(counts(std::numeric_limits<float>::quiet_NaN(), 1.0), "not finite");
    EXPECT_DEATH(counts(100.0f, 1.0), "not finite");   // e^100 overflows float
    EXPECT_DEATH(counts(1.0f, 0.0), "not finite");     // speed 0
    EXPECT_DEATH(counts(60.0f, 1.0), "out of range");  // 1.1e26 frames
    EXPECT_DEATH(totalFrames(std::vector<int64_t>{std::numeric_limits<int64_t>::max(), 2}),
                 "overflows");
}

}  // namespace
}  // namespace murmela
