#pragma once
// An opened voice: the engine's public face. It turns text into id chunks (through its
// phonemizer) and each chunk into samples, splitting a chunk that needs more frames than the
// decoder can take.
//
// Immutable after opening apart from the model's runtime sessions: one synthesis at a time.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>

#include "engine/synthesis_result.h"
#include "engine/voice_model.h"
#include "frontend/phonemizer.h"

namespace murmela {

class Voice {
public:
    // Opens the voice directory: espeak-ng's data, then the vocabulary, then voice.json and the
    // three models. The first failure is passed on unchanged (VoiceError, the file system's,
    // the JSON parser's or the runtime's own error).
    explicit Voice(const std::filesystem::path& directory);

    // The frame counts (boundary tokens included, for every chunk finally synthesised) and the
    // samples of `ids` at `speed` (1 is normal, larger is faster). A chunk too long for the
    // decoder is cut in two, after the comma or space nearest its middle, and the halves are
    // synthesised in turn and joined as they are.
    SynthesisResult synthesize(std::span<const int64_t> ids, double speed);

    VoiceModel& model() { return *model_; }
    const Phonemizer& phonemizer() const { return phonemizer_; }

private:
    // Declared first because it is made first: opening goes espeak-ng, vocabulary, models.
    Phonemizer phonemizer_;
    std::unique_ptr<VoiceModel> model_;
};

}  // namespace murmela
