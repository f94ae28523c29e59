// The vectorised sine and cosine against the C library's, over every phase a float16 vocoder
// output can hold.

#include "engine/vector_math.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

namespace murmela {
namespace {

constexpr double tolerance = 2.5e-7;

void expectAccurate(const std::vector<float>& x) {
    // With unit magnitudes the interleaved pairs are the cosine and the sine themselves.
    const std::vector<float> ones(x.size(), 1.0f);
    std::vector<float> complex(2 * x.size());
    polarToInterleaved(ones.data(), x.data(), complex.data(), x.size());
    for (size_t i = 0; i < x.size(); ++i) {
        const float sine = complex[2 * i + 1], cosine = complex[2 * i];
        double exactSine = std::sin(static_cast<double>(x[i]));
        double exactCosine = std::cos(static_cast<double>(x[i]));
        ASSERT_NEAR(sine, exactSine, tolerance) << "sin " << x[i];
        ASSERT_NEAR(cosine, exactCosine, tolerance) << "cos " << x[i];
    }
}

TEST(VectorTrig, AccurateOverTheFloat16Range) {
    std::vector<float> x;
    for (double value = -65504.0; value <= 65504.0; value += 0.37) {
        x.push_back(static_cast<float>(value));
    }
    x.push_back(65504.0f);
    expectAccurate(x);
}

TEST(VectorTrig, AccurateAroundEveryQuadrantBoundary) {
    // Range reduction switches quadrant at odd multiples of pi/4: check both sides closely.
    std::vector<float> x;
    for (int k = -4000; k <= 4000; ++k) {
        float boundary = static_cast<float>(k * std::numbers::pi / 4);
        float below = boundary, above = boundary;
        for (int step = 0; step < 4; ++step) {
            x.push_back(below);
            x.push_back(above);
            below = std::nextafter(below, -INFINITY);
            above = std::nextafter(above, INFINITY);
        }
    }
    for (double value = -8.0; value <= 8.0; value += 1e-4) {
        x.push_back(static_cast<float>(value));
    }
    expectAccurate(x);
}

TEST(VectorTrig, ExactAtZeroAndNaNForNonFinite) {
    const std::vector<float> x = {0.0f, std::numeric_limits<float>::quiet_NaN(), INFINITY,
                                  -INFINITY};
    const std::vector<float> ones(x.size(), 1.0f);
    std::vector<float> complex(2 * x.size());
    polarToInterleaved(ones.data(), x.data(), complex.data(), x.size());
    EXPECT_EQ(complex[0], 1.0f);
    EXPECT_EQ(complex[1], 0.0f);
    for (size_t i = 1; i < x.size(); ++i) {
        EXPECT_TRUE(std::isnan(complex[2 * i])) << x[i];
        EXPECT_TRUE(std::isnan(complex[2 * i + 1])) << x[i];
    }
}

TEST(VectorTrig, PolarToInterleavedScalesByTheMagnitudeAndKeepsThePairsInOrder) {
    // An odd count exercises the loop's tail.
    std::vector<float> magnitude, phase;
    for (int i = 0; i < 515; ++i) {
        magnitude.push_back(i % 5 == 0 ? 0.0f : 0.25f * static_cast<float>(i));
        phase.push_back(-9.0f + 0.031f * static_cast<float>(i));
    }
    // One guard value past the end: the tail must not write beyond 2 * count.
    std::vector<float> complex(2 * 515 + 1, 7.0f);
    polarToInterleaved(magnitude.data(), phase.data(), complex.data(), 515);
    for (size_t i = 0; i < 515; ++i) {
        double m = magnitude[i];
        ASSERT_NEAR(complex[2 * i], m * std::cos(static_cast<double>(phase[i])), m * tolerance)
            << i;
        ASSERT_NEAR(complex[2 * i + 1], m * std::sin(static_cast<double>(phase[i])), m * tolerance)
            << i;
    }
    EXPECT_EQ(complex.back(), 7.0f);
}

}  // namespace
}  // namespace murmela
