#pragma once
// A Piper voice: NAME.onnx with NAME.onnx.json beside it. Each sentence is phonemised with
// espeak-ng's own IPA for the voice's language, split into single code points after NFD, and
// mapped through the voice's phoneme_id_map; one model run makes its samples at the voice's
// rate, followed by 0.2 s of silence, resampled to 24 kHz.

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/model_session.h"
#include "engine/resampler.h"
#include "engine/speech_model.h"
#include "frontend/espeak.h"

namespace murmela {

// What NAME.onnx.json says.
struct PiperSettings {
    int64_t sampleRate = 0;
    std::string espeakVoice;
    float noiseScale = 0;
    float lengthScale = 0;
    float noiseWidth = 0;
    std::map<char32_t, std::vector<int64_t>> phonemeIds;
    int64_t speakers = 1;
    std::map<std::string, int64_t> speakerIds;
};

// Reads the text of NAME.onnx.json; `file` names it in errors. Throws VoiceError
// "<file>: <problem>" for a missing or ill-typed member, a rate that is not positive, or a
// phoneme_id_map that is not a map of lists of ids (each key one code point), and the JSON
// parser's own error for text that is not JSON.
PiperSettings parsePiperSettings(std::string_view json, const std::string& file);

// The model of a Piper voice in `directory`: the first NAME.onnx (in name order) that has
// NAME.onnx.json beside it; nothing when the directory holds no .onnx file at all. Throws
// VoiceError::missing("NAME.onnx.json") when the only models lack their settings.
std::optional<std::filesystem::path> findPiperModel(const std::filesystem::path& directory);

class PiperVoice final : public SpeechModel {
public:
    static constexpr double silenceSeconds = 0.2;
    // The longest run of phonemes one model run takes; a longer sentence is cut at a space.
    static constexpr size_t maxPhonemes = 400;

    // Opens the model and its settings, with speaker `name` (empty: speaker 0). Throws
    // VoiceError naming the file and the problem, and the runtime's own error when it refuses
    // the model.
    PiperVoice(const std::filesystem::path& model, const std::string& name);

    // Per sentence: "^", "_", the ids of each phoneme each followed by "_", then "$". A
    // phoneme the map lacks is dropped.
    void chunks(std::string_view text,
                const std::function<bool(std::vector<int64_t>)>& each) const override;
    SynthesisResult synthesize(std::span<const int64_t> ids, double speed) override;
    void beginSpeech() override;
    void interrupt() override { runOptions_.SetTerminate(); }
    void resume() override { runOptions_.UnsetTerminate(); }

private:
    // The ids of one sentence's phonemes (espeak-ng's IPA as it is), framed as chunks() frames
    // them.
    std::vector<int64_t> sentenceIds(std::u32string_view phonemes) const;

    std::string modelName_;
    PiperSettings settings_;
    int64_t speaker_ = 0;
    Espeak espeak_;
    ModelSession model_;
    std::unique_ptr<Resampler> resampler_;  // none when the voice already speaks at 24 kHz
    Ort::RunOptions runOptions_;
};

}  // namespace murmela
