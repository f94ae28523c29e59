#pragma once
// The engine's vector arithmetic: float16 to and from float32 conversion, and sine and cosine
// over whole arrays for the vocoder's phase.
//
// Marks a function whose loops are also built for AVX2, the build picked when the program loads.
// The thread sanitizer's runtime is not ready when load-time choices are made, so its builds
// keep the plain version only.

#include <cstddef>
#include <cstdint>

namespace murmela {

#if defined(__SANITIZE_THREAD__)
#define MURMELA_ALSO_FOR_AVX2
#else
#define MURMELA_ALSO_FOR_AVX2 __attribute__((target_clones("avx2", "default")))
#endif

// Conversions between 32-bit floats and IEEE 754 half-precision floats (binary16, held as their
// 16-bit patterns), over whole arrays. Rounding is to nearest, ties to even; subnormals,
// infinities and NaNs convert as IEEE 754 says (a NaN stays a NaN, made quiet).
//
// The CPU's own conversion instructions (F16C) are used where the processor has them; the
// portable loops give bit-identical results everywhere else.

void floatToHalf(const float* from, uint16_t* to, std::size_t count);
void halfToFloat(const uint16_t* from, float* to, std::size_t count);

// One value at a time, for strided copies.
uint16_t halfFromFloat(float value);
float floatFromHalf(uint16_t half);

// Both implementations, so tests can hold each to the same results whatever CPU runs them.
namespace half_float {
bool hasF16c();
void floatToHalfPortable(const float* from, uint16_t* to, std::size_t count);
void halfToFloatPortable(const uint16_t* from, float* to, std::size_t count);
// Only on a CPU for which hasF16c() is true.
void floatToHalfF16c(const float* from, uint16_t* to, std::size_t count);
void halfToFloatF16c(const uint16_t* from, float* to, std::size_t count);
}  // namespace half_float

// Sine and cosine over whole arrays, for turning the vocoder's phase into complex bins fast.
//
// One range reduction serves both results. Accuracy: absolute error at most 2.5e-7 for
// |x| <= 65504 (every finite float16 phase); beyond that the reduction loses precision and for
// |x| > 6.5e6 the results are meaningless. NaN and infinity give NaN.

// complex[2i] = magnitude[i] * cos(phase[i]), complex[2i + 1] = magnitude[i] * sin(phase[i]):
// real and imaginary parts interleaved, as a DFT library's complex array holds them. The output
// must not overlap the inputs.
void polarToInterleaved(const float* magnitude, const float* phase, float* complex,
                        std::size_t count);

}  // namespace murmela
