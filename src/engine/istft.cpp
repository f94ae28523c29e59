#include "engine/istft.h"

#include <fftw3.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <mutex>
#include <new>
#include <numbers>
#include <string>

#include "engine/vector_math.h"
#include "logging/log.h"

// The per-sample loops are written for the vectoriser (this file is compiled with
// -fopenmp-simd).

namespace murmela {
namespace {

// The smallest normaliser: where (almost) no window covers a sample, dividing by it gives
// zero rather than NaN or infinity.
constexpr float normaliserFloor = 1e-11f;
static_assert(std::bit_cast<uint32_t>(normaliserFloor) == 0x2D2FEBFFu);

// FFTW's planner (creating and destroying plans) is process-wide state and not thread-safe;
// executing a plan is.
std::mutex& plannerLock() {
    static std::mutex lock;
    return lock;
}

// A zeroed float array on a cache-line boundary. The plan is made on such arrays and run on
// such arrays, so they always have the alignment it was made for; allocating them without
// FFTW keeps run() clear of every FFTW call but the thread-safe execute.
class AlignedArray {
public:
    explicit AlignedArray(int64_t count)
        : data_(static_cast<float*>(
              ::operator new(sizeof(float) * static_cast<size_t>(count), alignment))) {
        std::fill_n(data_, count, 0.0f);
    }
    ~AlignedArray() { ::operator delete(data_, alignment); }
    AlignedArray(const AlignedArray&) = delete;
    AlignedArray& operator=(const AlignedArray&) = delete;

    float* data() { return data_; }
    float& operator[](int64_t i) { return data_[i]; }

private:
    static constexpr std::align_val_t alignment{64};
    float* data_;
};

fftwf_complex* asComplex(float* interleaved) {
    return reinterpret_cast<fftwf_complex*>(interleaved);
}

// The per-sample loops are also built for AVX2 (no fused multiply-add, and the file is built
// without contraction), picked at load time: the same bits either way.
MURMELA_ALSO_FOR_AVX2 void multiplyAdd(float* __restrict sum, const float* __restrict a,
                                       const float* __restrict b, int64_t count) {
#pragma omp simd
    for (int64_t i = 0; i < count; ++i) {
        sum[i] += a[i] * b[i];
    }
}

MURMELA_ALSO_FOR_AVX2 void add(float* __restrict sum, const float* __restrict a, int64_t count) {
#pragma omp simd
    for (int64_t i = 0; i < count; ++i) {
        sum[i] += a[i];
    }
}

// samples[i] = samples[offset + i] / max(normaliser[offset + i], floor), in place: each value
// is read before it is overwritten since offset >= 0, also a vector at a time.
MURMELA_ALSO_FOR_AVX2 void normalise(float* samples, const float* __restrict normaliser,
                                     int64_t offset, int64_t count) {
#pragma omp simd
    for (int64_t i = 0; i < count; ++i) {
        float divisor = normaliser[offset + i];
        divisor = divisor < normaliserFloor ? normaliserFloor : divisor;
        samples[i] = samples[offset + i] / divisor;
    }
}

}  // namespace

void ISTFT::PlanDeleter::operator()(fftwf_plan_s* plan) const {
    std::lock_guard lock(plannerLock());
    fftwf_destroy_plan(plan);
}

ISTFT::ISTFT(int64_t n, int64_t hop) : n_(n), hop_(hop), pad_((n - hop) / 2) {
    if (n <= 0 || n % 2 != 0 || n > (int64_t{1} << 30) || hop <= 0 || hop > n) {
        programmingError("inverse STFT with n " + std::to_string(n) + " and hop " +
                         std::to_string(hop));
    }
    window_.resize(static_cast<size_t>(n));
    for (int64_t i = 0; i < n; ++i) {
        double angle = 2.0 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(n);
        window_[static_cast<size_t>(i)] = static_cast<float>(0.5 - 0.5 * std::cos(angle));
    }

    // Interleaved complex input: FFTW's complex-to-real transforms are faster on it than on
    // split arrays. A plan by estimate, not measurement, so the same machine always gives the
    // same samples.
    AlignedArray spectrum(2 * bins()), samples(n);
    {
        std::lock_guard lock(plannerLock());
        setup_.reset(fftwf_plan_dft_c2r_1d(static_cast<int>(n), asComplex(spectrum.data()),
                                           samples.data(), FFTW_ESTIMATE));
    }
    if (!setup_) {
        programmingError("no inverse DFT of length " + std::to_string(n));
    }

    // Calibrate rather than trust the library's scaling: a unit DC value must come out as 1/n.
    std::fill_n(spectrum.data(), 2 * bins(), 0.0f);
    spectrum[0] = 1.0f;
    fftwf_execute_dft_c2r(setup_.get(), asComplex(spectrum.data()), samples.data());
    float first = samples[0];
    if (!std::isfinite(first) || first == 0.0f) {
        programmingError("inverse DFT gives " + std::to_string(first) + " for a unit DC value");
    }
    scale_ = (1.0f / static_cast<float>(n)) / first;

    // What overlap-add uses of the window, made once: the window with the DFT's scale folded in,
    // and its square for the normaliser.
    synthesisWindow_.resize(window_.size());
    squaredWindow_.resize(window_.size());
    for (size_t i = 0; i < window_.size(); ++i) {
        synthesisWindow_[i] = window_[i] * scale_;
        squaredWindow_[i] = window_[i] * window_[i];
    }
}

std::vector<float> ISTFT::run(std::span<const float> mag, std::span<const float> phase,
                              int64_t frames) const {
    const int64_t bins = this->bins();
    const int64_t half = n_ / 2;
    if (frames < 0 || frames > (int64_t{1} << 40) / n_ ||
        static_cast<int64_t>(mag.size()) < frames * bins ||
        static_cast<int64_t>(phase.size()) < frames * bins) {
        programmingError("inverse STFT of " + std::to_string(frames) + " frames from " +
                         std::to_string(mag.size()) + " magnitudes and " +
                         std::to_string(phase.size()) + " phases");
    }
    if (frames == 0) {
        return {};
    }

    const int64_t length = (frames - 1) * hop_ + n_;
    std::vector<float> out(static_cast<size_t>(length), 0.0f);
    std::vector<float> normaliser(static_cast<size_t>(length), 0.0f);

    AlignedArray spectrum(2 * bins), frame(n_);
    for (int64_t t = 0; t < frames; ++t) {
        polarToInterleaved(mag.data() + t * bins, phase.data() + t * bins, spectrum.data(),
                           static_cast<size_t>(bins));
        // DC and Nyquist are real bins: their sine parts are dropped on purpose, explicitly
        // rather than left to how the library reads a Hermitian input.
        spectrum[1] = 0.0f;
        spectrum[2 * half + 1] = 0.0f;
        // The transform overwrites its input; the next frame writes all of it again.
        fftwf_execute_dft_c2r(setup_.get(), asComplex(spectrum.data()), frame.data());
        multiplyAdd(out.data() + t * hop_, frame.data(), synthesisWindow_.data(), n_);
        add(normaliser.data() + t * hop_, squaredWindow_.data(), n_);
    }

    const int64_t count = frames * hop_;
    normalise(out.data(), normaliser.data(), pad_, count);
    out.resize(static_cast<size_t>(count));
    return out;
}

}  // namespace murmela
