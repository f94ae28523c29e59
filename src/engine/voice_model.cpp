#include "engine/voice_model.h"

#include <string>
#include <utility>

#include "common/voice_error.h"
#include "common/voice_format.h"
#include "engine/durations.h"
#include "engine/tensor_layout.h"
#include "engine/vector_math.h"

namespace murmela {
namespace {

using namespace model_dimensions;

}  // namespace

VoiceModel::VoiceModel(const VoiceFiles& files) : VoiceModel(files, files.readInterface()) {}

VoiceModel::VoiceModel(const VoiceFiles& files, const VoiceInterface& interface)
    : istft_(nFft, hop),
      encoderBuckets_(interface.encoderBuckets),
      decoderBuckets_(interface.decoderBuckets),
      encoder_(files.loadModel("encoder", interface.programs)),
      decoder_(files.loadModel("decoder", interface.programs)),
      vocoder_(files.loadModel("vocoder", interface.programs)) {}

SynthesisResult VoiceModel::synthesizeChunk(std::span<const int64_t> ids, double speed) {
    std::vector<int64_t> tokens;
    tokens.reserve(ids.size() + 2);
    tokens.push_back(0);
    tokens.insert(tokens.end(), ids.begin(), ids.end());
    tokens.push_back(0);

    Encoded encoded = encode(tokens);
    std::vector<int64_t> counts = frameCounts(encoded.logDurations, speed);
    Spectrogram spectrogram = decode(encoded.features, counts);
    return {std::move(counts), istft_.run(spectrogram.mag, spectrogram.phase, spectrogram.frames)};
}

VoiceModel::Encoded VoiceModel::encode(std::span<const int64_t> tokens) {
    const auto length = static_cast<int64_t>(tokens.size());
    std::optional<int64_t> bucket = chooseBucket(encoderBuckets_, length);
    if (length == 0 || !bucket) {
        throw VoiceError::failed(std::to_string(length) + " ids is past the encoder");
    }
    EncoderInput input = encoderInput(tokens, *bucket);
    std::vector<std::pair<std::string, Ort::Value>> inputs;
    inputs.emplace_back("ids", tensorOver(input.ids, {1, *bucket}));
    inputs.emplace_back("mask", tensorOver(input.mask, {1, *bucket}));
    std::map<std::string, Ort::Value> outputs = encoder_.run(std::move(inputs), runOptions_);

    const Ort::Value* e = tensorOutput(outputs, "e");
    const Ort::Value* logd = tensorOutput(outputs, "logd");
    if (e == nullptr || logd == nullptr) {
        throw VoiceError::failed("the encoder gave no e or logd");
    }
    requireElementType(*e, float32Code);
    requireElementType(*logd, float32Code);
    return {denseRows(floatOutput(*e, length, encoderWidth), length, encoderWidth),
            denseRows(floatOutput(*logd, length, 1), length, 1)};
}

VoiceModel::Spectrogram VoiceModel::decode(std::span<const float> features,
                                           std::span<const int64_t> counts) {
    const int64_t frames = totalFrames(counts);
    if (counts.empty() || frames <= 0) {
        throw VoiceError::failed("no frames");
    }
    std::optional<int64_t> bucket = chooseBucket(decoderBuckets_, frames);
    if (!bucket) {
        throw TooLong(frames);
    }
    const int64_t d = *bucket;

    std::vector<uint16_t> mel;
    {
        DecoderInput input = decoderInput(features, counts, frames, d);
        std::vector<std::pair<std::string, Ort::Value>> inputs;
        inputs.emplace_back("x", tensorOver(input.x, {1, d, decoderWidth}));
        inputs.emplace_back("mask", tensorOver(input.mask, {1, d}));
        inputs.emplace_back("last", tensorOver(input.last, {1, d}));
        std::map<std::string, Ort::Value> outputs = decoder_.run(std::move(inputs), runOptions_);
        const Ort::Value* decoded = tensorOutput(outputs, "mel");
        if (decoded == nullptr) {
            throw VoiceError::failed("the decoder gave no mel");
        }
        requireElementType(*decoded, float32Code);
        mel = halfRows(floatOutput(*decoded, melChannels, d), melChannels, d);
    }

    std::vector<std::pair<std::string, Ort::Value>> inputs;
    inputs.emplace_back("mel", halfTensorOver(mel, {1, melChannels, d}));
    std::map<std::string, Ort::Value> outputs = vocoder_.run(std::move(inputs), runOptions_);
    const Ort::Value* mag = tensorOutput(outputs, "mag");
    const Ort::Value* phase = tensorOutput(outputs, "phase");
    if (mag == nullptr || phase == nullptr) {
        throw VoiceError::failed("the vocoder gave no mag or phase");
    }
    requireElementType(*mag, float16Code);
    requireElementType(*phase, float16Code);
    // Bins x frames in the model, frames x bins for the inverse STFT.
    return {frames, transposedFloats(halfOutput(*mag, spectrumBins, frames), spectrumBins, frames),
            transposedFloats(halfOutput(*phase, spectrumBins, frames), spectrumBins, frames)};
}

}  // namespace murmela
