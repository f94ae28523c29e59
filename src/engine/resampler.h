#pragma once
// A streaming sample-rate converter (libsoxr): the samples of consecutive chunks are converted
// as one stream, so the edges between chunks leave no clicks.

#include <span>
#include <vector>

// libsoxr's handle, kept out of this header.
struct soxr;

namespace murmela {

class Resampler {
public:
    // Converts from `inputRate` to `outputRate` samples a second, both positive. Throws
    // VoiceError when libsoxr refuses the rates.
    Resampler(double inputRate, double outputRate);
    ~Resampler();
    Resampler(const Resampler&) = delete;
    Resampler& operator=(const Resampler&) = delete;

    // The converted samples that `input` completes. The filter holds back a few milliseconds,
    // which come out with the next call.
    std::vector<float> process(std::span<const float> input);

    // Forgets the stream so far: the next call begins a new one.
    void reset();

private:
    soxr* stream_;
    double ratio_;
};

}  // namespace murmela
