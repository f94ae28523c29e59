#pragma once
// Timings of the parity report as whole milliseconds. The two roundings differ on purpose:
// the load time is truncated, the render times are rounded half away from zero.

#include <chrono>
#include <cstdint>

namespace murmela {

// The milliseconds between two readings of the monotonic clock, as a fraction.
double millisecondsBetween(std::chrono::steady_clock::time_point start,
                           std::chrono::steady_clock::time_point end);

// `milliseconds` truncated toward zero. A value that is not finite or lies outside the 64-bit
// range is a programming error and stops the process.
int64_t truncatedMilliseconds(double milliseconds);

// `milliseconds` rounded to the nearest integer, halves away from zero; fatal like the above.
int64_t roundedMilliseconds(double milliseconds);

}  // namespace murmela
