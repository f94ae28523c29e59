#pragma once
// Conversions between 32-bit floats and IEEE 754 half-precision floats (binary16, held as their
// 16-bit patterns), over whole arrays. Rounding is to nearest, ties to even; subnormals,
// infinities and NaNs convert as IEEE 754 says (a NaN stays a NaN, made quiet).
//
// The CPU's own conversion instructions (F16C) are used where the processor has them; the
// portable loops give bit-identical results everywhere else.

#include <cstddef>
#include <cstdint>

namespace murmela {

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

}  // namespace murmela
