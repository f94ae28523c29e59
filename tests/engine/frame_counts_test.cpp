// Token durations to decoder frames: the rounding, the floor of one, the doubling, the speed,
// and the impossible values that stop the program.

#include "engine/model_io.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace murmela {
namespace {

std::vector<int64_t> countsFor(std::vector<float> logDurations, double speed = 1.0) {
    return frameCounts(logDurations, speed);
}

// A log-duration and a speed that make v exactly `v` in float arithmetic: a power-of-two speed
// s divides exactly, and some float x must have exp(x) == 1 + v * s exactly. Which one does
// depends on the C library's exp, so several are tried.
struct ExactDuration {
    float logd;
    double speed;
};

ExactDuration exactly(float v) {
    for (float s : {1.0f, 2.0f, 0.5f, 0.25f, 4.0f, 0.125f, 8.0f}) {
        const float target = 1.0f + v * s;
        float x = std::log(target);
        for (int step = 0; step < 200; ++step) {
            float below = x, above = x;
            for (int i = 0; i < step; ++i) {
                below = std::nextafter(below, -INFINITY);
                above = std::nextafter(above, INFINITY);
            }
            if (std::exp(below) == target) {
                return {below, s};
            }
            if (std::exp(above) == target) {
                return {above, s};
            }
        }
    }
    ADD_FAILURE() << "no float log-duration gives exactly " << v;
    return {0.0f, 1.0};
}

TEST(FrameCounts, EveryTokenGetsAtLeastTwoFrames) {
    // v = 0 rounds to 0 and is raised to 1; a negative v (logd < 0) likewise.
    EXPECT_EQ(countsFor({0.0f, -3.0f, std::log(1.2f)}), (std::vector<int64_t>{2, 2, 2}));
}

TEST(FrameCounts, SpeedDividesTheDurationBeforeRounding) {
    EXPECT_EQ(countsFor({std::log(7.0f)}, 2.0), (std::vector<int64_t>{6}));    // 6 / 2 = 3
    EXPECT_EQ(countsFor({std::log(3.5f)}, 2.0), (std::vector<int64_t>{2}));    // 1.25 -> 1
    EXPECT_EQ(countsFor({std::log(7.0f)}, 1.0), (std::vector<int64_t>{12}));   // 6
    EXPECT_EQ(countsFor({std::log(7.0f)}, 0.75), (std::vector<int64_t>{16}));  // 8
}

TEST(FrameCounts, HalvesRoundToEven) {
    // Half-up rounding would give 3 and 4; truncation 2 and 3.
    ExactDuration twoAndAHalf = exactly(2.5f);
    EXPECT_EQ(countsFor({twoAndAHalf.logd}, twoAndAHalf.speed), (std::vector<int64_t>{4}));
    ExactDuration threeAndAHalf = exactly(3.5f);
    EXPECT_EQ(countsFor({threeAndAHalf.logd}, threeAndAHalf.speed), (std::vector<int64_t>{8}));
}

TEST(FrameCounts, OneCountPerTokenInOrder) {
    std::vector<float> logd = {std::log(2.0f), std::log(4.0f), 0.0f, std::log(3.0f)};
    EXPECT_EQ(countsFor(logd), (std::vector<int64_t>{2, 6, 2, 4}));
    EXPECT_TRUE(countsFor({}).empty());
}

TEST(FrameCounts, TotalAddsTheCounts) {
    EXPECT_EQ(totalFrames(std::vector<int64_t>{2, 6, 2, 4}), 14);
    EXPECT_EQ(totalFrames(std::vector<int64_t>{}), 0);
}

TEST(FrameCountsDeathTest, ImpossibleDurationsStopTheProgram) {
    EXPECT_DEATH(countsFor({std::numeric_limits<float>::quiet_NaN()}), "not finite");
    EXPECT_DEATH(countsFor({100.0f}), "not finite");     // e^100 overflows float
    EXPECT_DEATH(countsFor({1.0f}, 0.0), "not finite");  // speed 0
    EXPECT_DEATH(countsFor({60.0f}), "out of range");    // 1.1e26 frames
    EXPECT_DEATH(totalFrames(std::vector<int64_t>{std::numeric_limits<int64_t>::max(), 2}),
                 "overflows");
}

}  // namespace
}  // namespace murmela
