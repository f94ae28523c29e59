// The inverse STFT on 800 frames (10 s of audio), next to its parts: the 800 inverse FFTs alone
// and the sines and cosines alone, so the cost around FFTW shows.
//
// "xRealTime" is seconds of audio made per second of work, on one core.

#include <benchmark/benchmark.h>
#include <fftw3.h>

#include <random>
#include <vector>

#include "engine/istft.h"
#include "engine/vector_trig.h"

namespace {

constexpr int64_t n = 1024;
constexpr int64_t hop = 300;
constexpr int64_t bins = n / 2 + 1;
constexpr int64_t frames = 800;
constexpr double sampleRate = 24000.0;

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
    double audioSeconds = static_cast<double>(frames * hop) / sampleRate;
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

// Only the transforms: the same plan form the ISTFT uses, on ready-made bins. Argument 1
// plans with FFTW_MEASURE instead of FFTW_ESTIMATE, for comparison.
void inverseFft800Frames(benchmark::State& state) {
    float* real = fftwf_alloc_real(bins);
    float* imaginary = fftwf_alloc_real(bins);
    float* out = fftwf_alloc_real(n);
    fftwf_iodim dimension{static_cast<int>(n), 1, 1};
    fftwf_plan plan =
        fftwf_plan_guru_split_dft_c2r(1, &dimension, 0, nullptr, real, imaginary, out,
                                      state.range(0) == 1 ? FFTW_MEASURE : FFTW_ESTIMATE);
    Spectrogram spectrogram;
    for (auto _ : state) {
        for (int64_t t = 0; t < frames; ++t) {
            std::copy_n(spectrogram.mag.data() + t * bins, bins, real);
            std::copy_n(spectrogram.phase.data() + t * bins, bins, imaginary);
            fftwf_execute_split_dft_c2r(plan, real, imaginary, out);
            benchmark::DoNotOptimize(out);
        }
    }
    setRealTime(state);
    fftwf_destroy_plan(plan);
    fftwf_free(out);
    fftwf_free(imaginary);
    fftwf_free(real);
}
BENCHMARK(inverseFft800Frames)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void sineCosine800Frames(benchmark::State& state) {
    Spectrogram spectrogram;
    std::vector<float> real(bins), imaginary(bins);
    for (auto _ : state) {
        for (int64_t t = 0; t < frames; ++t) {
            murmela::polarToRectangular(spectrogram.mag.data() + t * bins,
                                        spectrogram.phase.data() + t * bins, real.data(),
                                        imaginary.data(), bins);
            benchmark::DoNotOptimize(real.data());
        }
    }
    setRealTime(state);
}
BENCHMARK(sineCosine800Frames)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
