// float32 <-> float16 conversions, both the F16C and the portable one, against the compiler's
// own _Float16 arithmetic (done in software here, so independent of the code under test).

#include "engine/vector_math.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <functional>
#include <vector>

namespace murmela {
namespace {

using ToHalf = std::function<void(const float*, uint16_t*, size_t)>;
using ToFloat = std::function<void(const uint16_t*, float*, size_t)>;

struct Implementation {
    const char* name;
    ToHalf toHalf;
    ToFloat toFloat;
};

std::vector<Implementation> implementations() {
    std::vector<Implementation> all = {
        {"dispatched", floatToHalf, halfToFloat},
        {"portable", half_float::floatToHalfPortable, half_float::halfToFloatPortable},
    };
    if (half_float::hasF16c()) {
        all.push_back({"f16c", half_float::floatToHalfF16c, half_float::halfToFloatF16c});
    }
    return all;
}

uint16_t referenceHalf(float value) {
    return std::bit_cast<uint16_t>(static_cast<_Float16>(value));
}

bool isHalfNaN(uint16_t half) {
    return (half & 0x7fffu) > 0x7c00u;
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
            float expected = static_cast<float>(std::bit_cast<_Float16>(halves[i]));
            if (std::isnan(expected)) {
                ASSERT_TRUE(std::isnan(floats[i])) << implementation.name << " " << i;
            } else {
                ASSERT_EQ(std::bit_cast<uint32_t>(floats[i]), std::bit_cast<uint32_t>(expected))
                    << implementation.name << " half " << std::hex << i;
            }
        }
    }
}

void expectNarrowing(const std::vector<float>& floats) {
    for (const Implementation& implementation : implementations()) {
        std::vector<uint16_t> halves(floats.size());
        implementation.toHalf(floats.data(), halves.data(), floats.size());
        for (size_t i = 0; i < floats.size(); ++i) {
            if (std::isnan(floats[i])) {
                ASSERT_TRUE(isHalfNaN(halves[i])) << implementation.name;
            } else {
                ASSERT_EQ(halves[i], referenceHalf(floats[i]))
                    << implementation.name << " float " << floats[i] << " (0x" << std::hex
                    << std::bit_cast<uint32_t>(floats[i]) << ")";
            }
        }
    }
}

TEST(HalfFloat, FloatsAcrossAllPatternsRoundToNearestEven) {
    std::vector<float> floats;
    for (uint64_t bits = 0; bits <= 0xffffffffu; bits += 4099) {
        floats.push_back(std::bit_cast<float>(static_cast<uint32_t>(bits)));
    }
    expectNarrowing(floats);
}

TEST(HalfFloat, TiesOverflowAndSubnormalsRoundToNearestEven) {
    std::vector<float> floats = {
        1.0f + 0x1p-11f,      // tie: down to 1
        1.0f + 3 * 0x1p-11f,  // tie: up to the even 1 + 2^-9
        65504.0f,
        65519.0f,  // largest half, and the largest float that rounds to it
        65520.0f,
        1e10f,                // infinity from here on
        0x1p-14f,             // smallest normal
        0x1p-14f - 0x1p-25f,  // tie between the largest subnormal and the smallest normal
        0x1p-24f,
        0x1p-25f,      // smallest subnormal; half of it ties to zero
        3 * 0x1p-26f,  // above the tie: the smallest subnormal
        -0.0f,
        -1.5f,
        INFINITY,
        -INFINITY,
        NAN,
    };
    // Every tie and near-tie around each representable half of a few binades.
    for (float base : {0.5f, 1.0f, 1000.0f, 0x1p-20f}) {
        for (int i = 0; i < 64; ++i) {
            float value = base + base * static_cast<float>(i) * 0x1p-11f;
            floats.push_back(value);
            floats.push_back(std::nextafter(value, 0.0f));
            floats.push_back(std::nextafter(value, INFINITY));
        }
    }
    expectNarrowing(floats);
    // Lengths that leave a tail after the eight-at-a-time part.
    for (size_t length : {1u, 7u, 9u, 17u}) {
        std::vector<float> part(floats.begin(), floats.begin() + length);
        expectNarrowing(part);
    }
}

}  // namespace
}  // namespace murmela
