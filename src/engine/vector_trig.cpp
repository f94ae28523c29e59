#include "engine/vector_trig.h"

#include <bit>
#include <cstdint>

#include "engine/target_clones.h"

// The loops are written for the vectoriser (this file is compiled with -fopenmp-simd): no
// branches, no calls, the quadrant taken from bits rather than by a float-to-int conversion.

namespace murmela {
namespace {

constexpr float twoOverPi = 0.636619772f;
// pi/2 in three parts. The first two have 8 significant bits, so k times either is exact for
// every |k| < 2^16, which covers |x| <= 65504.
constexpr float halfPi1 = 1.5703125f;
constexpr float halfPi2 = 4.825592041015625e-4f;
constexpr float halfPi3 = 1.2675908e-6f;
// Adding and then subtracting 1.5 * 2^23 rounds to the nearest integer, and while added its
// low mantissa bits hold that integer modulo 4.
constexpr float roundingShift = 12582912.0f;

// Minimax polynomials for sin and cos on [-pi/4, pi/4] (the Cephes single-precision ones).
constexpr float sin3 = -1.6666654611e-1f;
constexpr float sin5 = 8.3321608736e-3f;
constexpr float sin7 = -1.9515295891e-4f;
constexpr float cos4 = 4.166664568298827e-2f;
constexpr float cos6 = -1.388731625493765e-3f;
constexpr float cos8 = 2.443315711809948e-5f;

inline void sineAndCosine(float x, float& sine, float& cosine) {
    float shifted = x * twoOverPi + roundingShift;
    float k = shifted - roundingShift;
    uint32_t quadrant = std::bit_cast<uint32_t>(shifted) & 3u;

    float r = ((x - k * halfPi1) - k * halfPi2) - k * halfPi3;
    float z = r * r;
    float s = r + r * z * (sin3 + z * (sin5 + z * sin7));
    float c = 1.0f - 0.5f * z + z * z * (cos4 + z * (cos6 + z * cos8));

    // Odd quadrants swap sine and cosine; quadrants 2 and 3 negate the sine, 1 and 2 the cosine.
    uint32_t swap = 0u - (quadrant & 1u);
    uint32_t sBits = std::bit_cast<uint32_t>(s);
    uint32_t cBits = std::bit_cast<uint32_t>(c);
    uint32_t sineBits = (cBits & swap) | (sBits & ~swap);
    uint32_t cosineBits = (sBits & swap) | (cBits & ~swap);
    sine = std::bit_cast<float>(sineBits ^ ((quadrant & 2u) << 30));
    cosine = std::bit_cast<float>(cosineBits ^ (((quadrant + 1u) & 2u) << 30));
}

}  // namespace

// Each loop is also built for AVX2, chosen at load time where the processor has it. AVX2 alone
// brings no fused multiply-add, and the file is built without contraction, so both builds give
// the same bits.
MURMELA_ALSO_FOR_AVX2 void sineCosine(const float* __restrict x, float* __restrict sine,
                                      float* __restrict cosine, std::size_t count) {
#pragma omp simd
    for (std::size_t i = 0; i < count; ++i) {
        float s, c;
        sineAndCosine(x[i], s, c);
        sine[i] = s;
        cosine[i] = c;
    }
}

MURMELA_ALSO_FOR_AVX2 void polarToInterleaved(const float* __restrict magnitude,
                                              const float* __restrict phase,
                                              float* __restrict complex, std::size_t count) {
#pragma omp simd
    for (std::size_t i = 0; i < count; ++i) {
        float s, c;
        sineAndCosine(phase[i], s, c);
        complex[2 * i] = magnitude[i] * c;
        complex[2 * i + 1] = magnitude[i] * s;
    }
}

}  // namespace murmela
