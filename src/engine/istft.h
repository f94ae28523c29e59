#pragma once
// The inverse short-time Fourier transform that turns the vocoder's magnitude and phase
// frames into samples: an inverse real DFT per frame, a periodic Hann window, overlap-add at a
// fixed hop, normalisation by the overlapped squared window, and the centring pad trimmed off,
// so F frames give exactly F * hop samples.
//
// run() may be called by one thread at a time per object; different objects run concurrently.

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

struct fftwf_plan_s;

namespace murmela {

class ISTFT {
public:
    // n is the DFT length (even, positive) and hop the step between frames (1 ... n); anything
    // else is a programming error and aborts.
    ISTFT(int64_t n, int64_t hop);

    // mag and phase hold `frames` frames of n/2 + 1 bins each, frame-major; magnitude is linear
    // and phase in radians. Returns frames * hop samples.
    std::vector<float> run(std::span<const float> mag, std::span<const float> phase,
                           int64_t frames) const;

    int64_t n() const { return n_; }
    int64_t hop() const { return hop_; }
    int64_t pad() const { return pad_; }
    int64_t bins() const { return n_ / 2 + 1; }
    const std::vector<float>& window() const { return window_; }
    // The factor that makes the DFT library's inverse transform the one with the 1/n factor.
    float scale() const { return scale_; }

private:
    struct PlanDeleter {
        void operator()(fftwf_plan_s* plan) const;
    };

    int64_t n_;
    int64_t hop_;
    int64_t pad_;
    std::vector<float> window_;
    std::vector<float> synthesisWindow_;
    std::vector<float> squaredWindow_;
    std::unique_ptr<fftwf_plan_s, PlanDeleter> setup_;
    float scale_;
};

}  // namespace murmela
