// The vectorised kernels against independent references: float32 <-> float16 against the
// compiler's own _Float16 arithmetic (done in software here), and sine and cosine against the
// C library's in double precision, over every phase a float16 vocoder output can hold.

#include "engine/vector_math.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <numbers>
#include <vector>

namespace murmela {
namespace {

struct Implementation {
    const char* name;
    void (*toHalf)(const float*, uint16_t*, size_t);
    void (*toFloat)(const uint16_t*, float*, size_t);
};

std::vector<Implementation> implementations() {
    std::vector<Implementation> all = {
        {"dispatched", floatToHalf, halfToFloat},
        {"portable", half_float::floatToHalfPortable, half_float::halfToFloatPortable}};
    if (half_float::hasF16c()) {
        all.push_back({"f16c", half_float::floatToHalfF16c, half_float::halfToFloatF16c});
    }
    return all;
}

TEST(HalfFloat, EveryHalfWidensExactly) {
    std::vector<uint16_t> halves(65536);
    for (size_t i = 0; i < halves.size(); ++i) {
        halves[i] = static_cast<uint16_t>(i);
    }
    for (const Implementation& implementation : implementations()) {
        std::vector<float> floats(halves.size());
        implementation.toFloat(halves.data(), floats.data(), halves.size());
        for (size_t i = 0; i < halves.size(); ++i) {
            const float expected = static_cast<float>(std::bit_cast<_Float16>(halves[i]));
            if (std::isnan(expected)) {
                ASSERT_TRUE(std::isnan(floats[i])) << implementation.name << " " << i;
            } else {
                ASSERT_EQ(std::bit_cast<uint32_t>(floats[i]), std::bit_cast<uint32_t>(expected))
                    << implementation.name << " half " << std::hex << i;
            }
        }
    }
}

TEST(HalfFloat, FloatsRoundToNearestEvenThroughTiesOverflowAndSubnormals) {
    std::vector<float> floats = {
        1.0f + 0x1p-11f,      // tie: down to 1
        1.0f + 3 * 0x1p-11f,  // tie: up to the even 1 + 2^-9
        65504.0f,             // the largest half
        65519.0f,             // the largest float that rounds to it
        65520.0f,             // infinity from here on
        0x1p-14f - 0x1p-25f,  // tie between the largest subnormal and the smallest normal
        0x1p-25f,             // half the smallest subnormal: ties to zero
        3 * 0x1p-26f,         // above the tie: the smallest subnormal
        -0.0f,
        INFINITY,
        -INFINITY,
        NAN,
    };
    // Every tie and near-tie around each representable half of a few binades.
    for (float base : {0.5f, 1.0f, 1000.0f, 0x1p-20f}) {
        for (int i = 0; i < 64; ++i) {
            const float value = base + base * static_cast<float>(i) * 0x1p-11f;
            floats.insert(floats.end(),
                          {value, std::nextafter(value, 0.0f), std::nextafter(value, INFINITY)});
        }
    }
    // And a sample of all bit patterns.
    for (uint64_t bits = 0; bits <= 0xffffffffu; bits += 4099) {
        floats.push_back(std::bit_cast<float>(static_cast<uint32_t>(bits)));
    }
    for (const Implementation& implementation : implementations()) {
        // Lengths that leave a tail after the eight-at-a-time part, then all.
        for (size_t length : {size_t{1}, size_t{9}, floats.size()}) {
            std::vector<uint16_t> halves(length);
            implementation.toHalf(floats.data(), halves.data(), length);
            for (size_t i = 0; i < length; ++i) {
                const uint16_t expected = std::bit_cast<uint16_t>(static_cast<_Float16>(floats[i]));
                if (std::isnan(floats[i])) {
                    ASSERT_GT(halves[i] & 0x7fffu, 0x7c00u) << implementation.name;
                } else {
                    ASSERT_EQ(halves[i], expected)
                        << implementation.name << " float " << floats[i] << " (0x" << std::hex
                        << std::bit_cast<uint32_t>(floats[i]) << ")";
                }
            }
        }
    }
}

// The phases of the float16 range, and both sides of every quadrant boundary (odd multiples of
// pi/4) where range reduction switches; magnitudes vary, and an odd count leaves a tail.
TEST(VectorTrig, PolarToInterleavedIsAccurateOverTheFloat16RangeAndNaNWhereNotFinite) {
    std::vector<float> phase;
    for (double value = -65504.0; value <= 65504.0; value += 0.37) {
        phase.push_back(static_cast<float>(value));
    }
    phase.push_back(65504.0f);
    for (int k = -4000; k <= 4000; ++k) {
        float below = static_cast<float>(k * std::numbers::pi / 4), above = below;
        for (int step = 0; step < 4; ++step) {
            phase.insert(phase.end(), {below, above});
            below = std::nextafter(below, -INFINITY);
            above = std::nextafter(above, INFINITY);
        }
    }
    for (double value = -8.0; value <= 8.0; value += 1e-4) {
        phase.push_back(static_cast<float>(value));
    }
    if (phase.size() % 2 == 0) {
        phase.push_back(1.0f);
    }
    std::vector<float> magnitude;
    for (size_t i = 0; i < phase.size(); ++i) {
        magnitude.push_back(i % 5 == 0 ? 1.0f : 0.25f * static_cast<float>(i % 97));
    }
    // One guard value past the end: the tail must not write beyond 2 * count.
    std::vector<float> complex(2 * phase.size() + 1, 7.0f);
    polarToInterleaved(magnitude.data(), phase.data(), complex.data(), phase.size());
    for (size_t i = 0; i < phase.size(); ++i) {
        const double m = magnitude[i], tolerance = 2.5e-7 * m;
        ASSERT_NEAR(complex[2 * i], m * std::cos(static_cast<double>(phase[i])), tolerance) << i;
        ASSERT_NEAR(complex[2 * i + 1], m * std::sin(static_cast<double>(phase[i])), tolerance)
            << i;
    }
    EXPECT_EQ(complex.back(), 7.0f);

    // Exact at zero, and NaN for what is not finite.
    const std::vector<float> x = {0.0f, NAN, INFINITY, -INFINITY}, ones(x.size(), 1.0f);
    polarToInterleaved(ones.data(), x.data(), complex.data(), x.size());
    EXPECT_EQ(complex[0], 1.0f);
    EXPECT_EQ(complex[1], 0.0f);
    for (size_t i = 1; i < x.size(); ++i) {
        EXPECT_TRUE(std::isnan(complex[2 * i]) && std::isnan(complex[2 * i + 1])) << x[i];
    }
}

}  // namespace
}  // namespace murmela
