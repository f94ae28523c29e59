#include "engine/resampler.h"

#include <soxr.h>

#include <cmath>
#include <string>

#include "common/voice_error.h"
#include "logging/log.h"

namespace murmela {

Resampler::Resampler(double inputRate, double outputRate) : ratio_(outputRate / inputRate) {
    soxr_error_t error = nullptr;
    const soxr_io_spec_t formats = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
    stream_ = soxr_create(inputRate, outputRate, 1, &error, &formats, &quality, nullptr);
    if (error != nullptr || stream_ == nullptr) {
        throw VoiceError::failed("no resampling from " + std::to_string(inputRate) +
                                 " Hz: " + (error != nullptr ? error : "unknown error"));
    }
}

Resampler::~Resampler() {
    soxr_delete(stream_);
}

std::vector<float> Resampler::process(std::span<const float> input) {
    std::vector<float> output;
    // Room for the whole input's worth at once, and for what the filter held back.
    output.resize(static_cast<size_t>(std::ceil(static_cast<double>(input.size()) * ratio_)) + 256);
    size_t written = 0;
    size_t consumed = 0;
    do {
        if (written == output.size()) {
            output.resize(output.size() * 2);
        }
        size_t taken = 0;
        size_t made = 0;
        const soxr_error_t error =
            soxr_process(stream_, input.data() + consumed, input.size() - consumed, &taken,
                         output.data() + written, output.size() - written, &made);
        if (error != nullptr) {
            // Only impossible arguments make libsoxr fail once it has been created.
            programmingError(std::string("resampling: ") + error);
        }
        consumed += taken;
        written += made;
        if (taken == 0 && made == 0) {
            break;
        }
    } while (consumed < input.size() || written == output.size());
    output.resize(written);
    return output;
}

void Resampler::reset() {
    soxr_clear(stream_);
}

}  // namespace murmela
