#pragma once
// The acoustic model in three stages (encoder, decoder, vocoder) and the inverse STFT, from one
// chunk of token ids to its frame counts and samples; and TooLong, the one error the voice
// resolves itself by splitting the chunk.

#include <cstdint>
#include <exception>
#include <span>
#include <vector>

#include "engine/istft.h"
#include "engine/model_session.h"
#include "engine/speech_model.h"
#include "engine/tensor_layout.h"
#include "engine/voice_files.h"

namespace murmela {

// A chunk needs more frames than the largest decoder bucket holds. Internal to the engine: the
// voice splits such a chunk and tries the parts.
class TooLong : public std::exception {
public:
    explicit TooLong(int64_t frameCount) : frames(frameCount) {}
    const char* what() const noexcept override {
        return "a chunk needs more frames than any decoder bucket holds";
    }

    int64_t frames;
};

// The acoustic model: three ONNX models (encoder, decoder, vocoder) and the inverse STFT that
// turn one chunk of token ids into samples. Inputs are padded to the bucket sizes voice.json
// lists, and the padding is dropped again after each model.
//
// Immutable after construction apart from the runtime sessions; one chunk at a time.

class VoiceModel {
public:
    // Reads voice.json and loads the three models; the first error (VoiceError, or the
    // runtime's or the JSON parser's own) is passed on.
    explicit VoiceModel(const VoiceFiles& files);

    // One chunk: the ids framed by boundary tokens (0), encoded, given frame counts at `speed`
    // (1 is normal, larger is faster), decoded and transformed. Returns ids.size() + 2 frame
    // counts and 300 samples per frame. Throws TooLong when the frames fit no decoder bucket,
    // VoiceError for what a voice's models got wrong, and the runtime's own errors.
    SynthesisResult synthesizeChunk(std::span<const int64_t> ids, double speed);

    // Any thread: makes the model run under way, and every later one, end at once with the
    // runtime's error, until resume().
    void interrupt() { runOptions_.SetTerminate(); }
    // Lets runs go ahead again; called only when no run is under way.
    void resume() { runOptions_.UnsetTerminate(); }

    const std::vector<int64_t>& encoderBuckets() const { return encoderBuckets_; }
    const std::vector<int64_t>& decoderBuckets() const { return decoderBuckets_; }

    // The steps of synthesizeChunk, each usable on its own.
    struct Encoded {
        std::vector<float> features;      // 256 per token, token-major
        std::vector<float> logDurations;  // one per token
    };
    Encoded encode(std::span<const int64_t> tokens);

    struct Spectrogram {
        int64_t frames;
        std::vector<float> mag;    // frames x 513, frame-major, linear magnitude
        std::vector<float> phase;  // frames x 513, frame-major, radians
    };
    // `features` as encode gives them, `counts` one per token.
    Spectrogram decode(std::span<const float> features, std::span<const int64_t> counts);

private:
    VoiceModel(const VoiceFiles& files, const VoiceInterface& interface);

    ISTFT istft_;
    std::vector<int64_t> encoderBuckets_;
    std::vector<int64_t> decoderBuckets_;
    ModelSession encoder_;
    ModelSession decoder_;
    ModelSession vocoder_;
    Ort::RunOptions runOptions_;  // shared by the three runs, so one flag ends whichever is going
};

}  // namespace murmela
