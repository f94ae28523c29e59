#pragma once
// The three-stage voice: the front end's symbols looked up in the directory's vocab.json, and
// the acoustic model of voice.json (encoder, decoder, vocoder and the inverse STFT), splitting a
// chunk that needs more frames than the decoder can take.

#include <filesystem>

#include "engine/speech_model.h"
#include "engine/voice_model.h"
#include "frontend/phonemizer.h"

namespace murmela {

class ThreeStageVoice final : public SpeechModel {
public:
    // Opens the voice directory: espeak-ng's data, then the vocabulary, then voice.json and the
    // three models. The first failure is passed on unchanged (VoiceError, the file system's,
    // the JSON parser's or the runtime's own error).
    explicit ThreeStageVoice(const std::filesystem::path& directory);

    void chunks(std::string_view text,
                const std::function<bool(std::vector<int64_t>)>& each) const override {
        phonemizer_.chunks(text, each);
    }

    // The frame counts (boundary tokens included, for every chunk finally synthesised) and the
    // samples of `ids`. A chunk too long for the decoder is cut in two, after the comma or space
    // nearest its middle, and the halves are synthesised in turn and joined as they are.
    SynthesisResult synthesize(std::span<const int64_t> ids, double speed) override;

    void interrupt() override { model_.interrupt(); }
    void resume() override { model_.resume(); }

    VoiceModel& model() { return model_; }
    const Phonemizer& phonemizer() const { return phonemizer_; }

private:
    // Declared first because it is made first: opening goes espeak-ng, vocabulary, models.
    Phonemizer phonemizer_;
    VoiceModel model_;
};

}  // namespace murmela
