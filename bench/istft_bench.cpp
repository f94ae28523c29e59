// The inverse STFT on 800 frames (10 s of audio), next to its parts: the 800 inverse FFTs alone
// and the sines and cosines alone, so the cost around FFTW shows.
//
// "xRealTime" is seconds of audio made per second of work, on one core.

#include <benchmark/benchmark.h>
#include <fftw3.h>

#include <algorithm>
#include <random>
#include <vector>

#include "common/voice_format.h"
#include "engine/istft.h"
#include "engine/vector_math.h"

namespace {

using murmela::model_dimensions::hop;
using murmela::model_dimensions::sampleRate;
constexpr int64_t n = murmela::model_dimensions::nFft;
constexpr int64_t bins = murmela::model_dimensions::spectrumBins;
constexpr int64_t frames = 800;

struct Spectrogram {
    Spectrogram() : mag(frames * bins), phase(frames * bins) {
        std::mt19937 random(1);
        std::uniform_real_distribution<float> magnitude(0.0f, 2.0f);
        std::uniform_real_distribution<float> angle(-3.1416f, 3.1416f);
        for (size_t i = 0; i < mag.size(); ++i) {
            mag[i] = magnitude(random);
            phase[i] = angle(random);
        }
    }
    std::vector<float> mag;
    std::vector<float> phase;
};

void setRealTime(benchmark::State& state) {
    double audioSeconds = static_cast<double>(frames * hop) / static_cast<double>(sampleRate);
    state.counters["xRealTime"] = benchmark::Counter(
        audioSeconds * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void istft800Frames(benchmark::State& state) {
    murmela::ISTFT istft(n, hop);
    Spectrogram spectrogram;
    for (auto _ : state) {
        std::vector<float> samples = istft.run(spectrogram.mag, spectrogram.phase, frames);
        benchmark::DoNotOptimize(samples.data());
    }
    setRealTime(state);
}
BENCHMARK(istft800Frames)->Unit(benchmark::kMillisecond);

// Only the transforms: the same plan form the ISTFT uses, on ready-made bins (a copy per frame,
// since the transform overwrites its input). Argument 1 plans with FFTW_MEASURE instead of
// FFTW_ESTIMATE, for comparison.
void inverseFft800Frames(benchmark::State& state) {
    fftwf_complex* spectrum = fftwf_alloc_complex(bins);
    float* out = fftwf_alloc_real(n);
    fftwf_plan plan = fftwf_plan_dft_c2r_1d(static_cast<int>(n), spectrum, out,
                                            state.range(0) == 1 ? FFTW_MEASURE : FFTW_ESTIMATE);
    // Bins with the magnitudes as real parts and the phases as imaginary parts: any values do.
    std::vector<float> ready(static_cast<size_t>(2 * frames * bins));
    Spectrogram spectrogram;
    for (size_t i = 0; i < spectrogram.mag.size(); ++i) {
        ready[2 * i] = spectrogram.mag[i];
        ready[2 * i + 1] = spectrogram.phase[i];
    }
    for (auto _ : state) {
        for (int64_t t = 0; t < frames; ++t) {
            std::copy_n(ready.data() + 2 * t * bins, 2 * bins, spectrum[0]);
            fftwf_execute_dft_c2r(plan, spectrum, out);
            benchmark::DoNotOptimize(out);
        }
    }
    setRealTime(state);
    fftwf_destroy_plan(plan);
    fftwf_free(out);
    fftwf_free(spectrum);
}
BENCHMARK(inverseFft800Frames)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void sineCosine800Frames(benchmark::State& state) {
    Spectrogram spectrogram;
    std::vector<float> complex(2 * bins);
    for (auto _ : state) {
        for (int64_t t = 0; t < frames; ++t) {
            murmela::polarToInterleaved(spectrogram.mag.data() + t * bins,
                                        spectrogram.phase.data() + t * bins, complex.data(), bins);
            benchmark::DoNotOptimize(complex.data());
        }
    }
    setRealTime(state);
}
BENCHMARK(sineCosine800Frames)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
