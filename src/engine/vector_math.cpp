#include "engine/vector_math.h"

#include <cpuid.h>
#include <immintrin.h>
#include <bit>
#include <cstdint>

namespace murmela {

// The portable loops are written for the vectoriser (this file is compiled with -fopenmp-simd):
// every case is computed and the right one selected, without branches.

namespace half_float {
namespace {

// `whenTrue` where `condition` holds, else `whenFalse`, as a bit mask: both sides are computed
// anyway, which keeps the loops branch-free.
inline uint32_t select(bool condition, uint32_t whenTrue, uint32_t whenFalse) {
    uint32_t mask = 0u - static_cast<uint32_t>(condition);
    return (whenTrue & mask) | (whenFalse & ~mask);
}

inline uint16_t toHalf(float value) {
    uint32_t bits = std::bit_cast<uint32_t>(value);
    uint32_t sign = (bits >> 16) & 0x8000u;
    uint32_t magnitude = bits & 0x7fffffffu;

    // Normal halves: move the exponent bias from 127 to 15 and round off 13 mantissa bits, ties
    // to even. A carry out of the mantissa correctly bumps the exponent, up to infinity.
    uint32_t normal = (magnitude - 0x38000000u + 0xfffu + ((magnitude >> 13) & 1u)) >> 13;
    // Below 2^-14 the halves are spaced 2^-24 apart, as floats in [0.5, 1) are: adding 0.5 lets
    // the float adder do the rounding.
    uint32_t subnormal =
        std::bit_cast<uint32_t>(std::bit_cast<float>(magnitude) + 0.5f) - 0x3f000000u;
    uint32_t quietNaN = 0x7e00u | (magnitude >> 13);

    uint32_t result = select(magnitude >= 0x47800000u, 0x7c00u, normal);  // 65536 and up: infinity
    result = select(magnitude < 0x38800000u, subnormal, result);
    result = select(magnitude > 0x7f800000u, quietNaN, result);
    return static_cast<uint16_t>(sign | result);
}

inline float toFloat(uint16_t half) {
    uint32_t sign = static_cast<uint32_t>(half & 0x8000u) << 16;
    uint32_t rest = half & 0x7fffu;
    uint32_t shifted = rest << 13;

    uint32_t normal = shifted + 0x38000000u;  // exponent bias from 15 to 127
    // A subnormal half m * 2^-24 is (1 + m / 1024) * 2^-14 - 2^-14, exactly.
    uint32_t subnormal =
        std::bit_cast<uint32_t>(std::bit_cast<float>(shifted + 0x38800000u) - 0x1p-14f);
    uint32_t special = shifted | 0x7f800000u | select(rest > 0x7c00u, 0x00400000u, 0u);

    uint32_t result = select(rest < 0x0400u, subnormal, normal);
    result = select(rest >= 0x7c00u, special, result);
    return std::bit_cast<float>(sign | result);
}

}  // namespace

bool hasF16c() {
    // The F16C bit is read from CPUID itself: clang (which builds the fuzzers) has no name for
    // it in __builtin_cpu_supports. Asked once: every conversion checks, and CPUID is slow (in
    // a virtual machine it traps to the host).
    static const bool supported = [] {
        unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
        return __builtin_cpu_supports("avx") && __get_cpuid(1, &eax, &ebx, &ecx, &edx) != 0 &&
               (ecx & bit_F16C) != 0;
    }();
    return supported;
}

void floatToHalfPortable(const float* __restrict from, uint16_t* __restrict to, std::size_t count) {
#pragma omp simd
    for (std::size_t i = 0; i < count; ++i) {
        to[i] = toHalf(from[i]);
    }
}

void halfToFloatPortable(const uint16_t* __restrict from, float* __restrict to, std::size_t count) {
#pragma omp simd
    for (std::size_t i = 0; i < count; ++i) {
        to[i] = toFloat(from[i]);
    }
}

__attribute__((target("avx,f16c"))) void floatToHalfF16c(const float* from, uint16_t* to,
                                                         std::size_t count) {
    std::size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        __m128i halves = _mm256_cvtps_ph(_mm256_loadu_ps(from + i), _MM_FROUND_TO_NEAREST_INT);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to + i), halves);
    }
    floatToHalfPortable(from + i, to + i, count - i);
}

__attribute__((target("avx,f16c"))) void halfToFloatF16c(const uint16_t* from, float* to,
                                                         std::size_t count) {
    std::size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        __m128i halves = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + i));
        _mm256_storeu_ps(to + i, _mm256_cvtph_ps(halves));
    }
    halfToFloatPortable(from + i, to + i, count - i);
}

}  // namespace half_float

void floatToHalf(const float* from, uint16_t* to, std::size_t count) {
    if (half_float::hasF16c()) {
        half_float::floatToHalfF16c(from, to, count);
    } else {
        half_float::floatToHalfPortable(from, to, count);
    }
}

uint16_t halfFromFloat(float value) {
    return half_float::toHalf(value);
}

float floatFromHalf(uint16_t half) {
    return half_float::toFloat(half);
}

void halfToFloat(const uint16_t* from, float* to, std::size_t count) {
    if (half_float::hasF16c()) {
        half_float::halfToFloatF16c(from, to, count);
    } else {
        half_float::halfToFloatPortable(from, to, count);
    }
}

// The loops are written for the vectoriser (this file is compiled with -fopenmp-simd): no
// branches, no calls, the quadrant taken from bits rather than by a float-to-int conversion.

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
