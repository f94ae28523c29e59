#pragma once
// The inverse STFT as the mathematics states it, in double precision and independent of the
// code under test: a naive inverse DFT of each frame with the 1/n factor (DC and Nyquist taken
// as real), the periodic Hann window, overlap-add at the hop, division by the summed squared
// window (floored at 1e-11), and the first (n - hop) / 2 samples trimmed.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <span>
#include <vector>

namespace murmela::testing {

inline double hann(int64_t i, int64_t n) {
    return 0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * static_cast<double>(i) / n);
}

// `mag` and `phase` hold `frames` frames of n / 2 + 1 bins, frame-major.
inline std::vector<double> referenceIstft(std::span<const float> mag, std::span<const float> phase,
                                          int64_t frames, int64_t n = 1024, int64_t hop = 300) {
    const int64_t bins = n / 2 + 1;
    std::vector<double> sum(static_cast<size_t>((frames - 1) * hop + n), 0.0);
    std::vector<double> squares(sum.size(), 0.0);
    for (int64_t t = 0; t < frames; ++t) {
        std::vector<double> frame(static_cast<size_t>(n), 0.0);
        for (int64_t k = 0; k < bins; ++k) {
            const double m = mag[static_cast<size_t>(t * bins + k)];
            const double phi = phase[static_cast<size_t>(t * bins + k)];
            const bool real = k == 0 || k == n / 2;
            for (int64_t j = 0; m != 0.0 && j < n; ++j) {
                const double angle = 2.0 * std::numbers::pi * static_cast<double>((j * k) % n) / n;
                frame[static_cast<size_t>(j)] +=
                    (real ? m * std::cos(phi) * std::cos(angle) : 2.0 * m * std::cos(angle + phi)) /
                    static_cast<double>(n);
            }
        }
        for (int64_t i = 0; i < n; ++i) {
            sum[static_cast<size_t>(t * hop + i)] += frame[static_cast<size_t>(i)] * hann(i, n);
            squares[static_cast<size_t>(t * hop + i)] += hann(i, n) * hann(i, n);
        }
    }
    const auto pad = static_cast<size_t>((n - hop) / 2);
    std::vector<double> samples(static_cast<size_t>(frames * hop));
    for (size_t i = 0; i < samples.size(); ++i) {
        samples[i] = sum[pad + i] / std::max(squares[pad + i], 1e-11);
    }
    return samples;
}

}  // namespace murmela::testing
