#pragma once
// Sine and cosine over whole arrays, for turning the vocoder's phase into complex bins fast.
//
// One range reduction serves both results. Accuracy: absolute error at most 2.5e-7 for
// |x| <= 65504 (every finite float16 phase); beyond that the reduction loses precision and for
// |x| > 6.5e6 the results are meaningless. NaN and infinity give NaN.

#include <cstddef>

namespace murmela {

// sine[i] = sin(x[i]), cosine[i] = cos(x[i]). The arrays must not overlap.
void sineCosine(const float* x, float* sine, float* cosine, std::size_t count);

// complex[2i] = magnitude[i] * cos(phase[i]), complex[2i + 1] = magnitude[i] * sin(phase[i]):
// real and imaginary parts interleaved, as a DFT library's complex array holds them. The output
// must not overlap the inputs.
void polarToInterleaved(const float* magnitude, const float* phase, float* complex,
                        std::size_t count);

}  // namespace murmela
