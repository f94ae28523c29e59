#pragma once
// Kokoro-82M as published in ONNX: one graph from token ids, a style row and the speed to
// samples at 24 kHz, with its voices in a pack (see voice_pack.h). The ids are the front end's
// symbols looked up in Kokoro's vocabulary.

#include <filesystem>
#include <string>

#include "engine/model_session.h"
#include "engine/speech_model.h"
#include "engine/voice_pack.h"
#include "frontend/phonemizer.h"

namespace murmela {

// The files of a Kokoro voice directory, when it is one.
struct KokoroFiles {
    std::filesystem::path model;  // kokoro-v1.0*.onnx, or onnx/model*.onnx
    std::filesystem::path pack;   // voices-v1.0.bin, or the voices/ folder
};

// Finds the model and the pack in `directory`: nothing when it has no Kokoro model. The plain
// model is preferred to its quantised siblings. Throws VoiceError::missing naming the pack when
// there is a model but no pack.
std::optional<KokoroFiles> findKokoroFiles(const std::filesystem::path& directory);

// Kokoro's vocabulary as its published configuration gives it.
Vocabulary kokoroDefaultVocabulary();

class KokoroVoice final : public SpeechModel {
public:
    // Opens voice `name` (empty: af_heart when the pack has it, else the pack's first) with
    // vocab.json beside the model, or the default vocabulary when there is none. Throws
    // VoiceError naming the file and the problem, and the runtime's own error when it refuses
    // the model.
    KokoroVoice(const std::filesystem::path& directory, const KokoroFiles& files,
                const std::string& name);

    void chunks(std::string_view text,
                const std::function<bool(std::vector<int64_t>)>& each) const override {
        phonemizer_.chunks(text, each);
    }
    SynthesisResult synthesize(std::span<const int64_t> ids, double speed) override;
    void interrupt() override { runOptions_.SetTerminate(); }
    void resume() override { runOptions_.UnsetTerminate(); }

private:
    std::string voice_;
    StyleTable styles_;
    Phonemizer phonemizer_;
    ModelSession model_;
    std::string modelName_;
    std::string idsInput_;  // "tokens" or "input_ids", whichever the export calls it
    Ort::RunOptions runOptions_;
};

}  // namespace murmela
