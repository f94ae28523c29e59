#include "engine/kokoro_voice.h"

#include <algorithm>
#include <system_error>

#include "common/voice_error.h"
#include "engine/tensor_layout.h"
#include "files/files.h"

namespace murmela {

extern const char* const kokoroVocabularyJson;  // generated from kokoro_vocab.json

namespace {

// The first file in `folder` named `prefix`…`.onnx`, the one named exactly `preferred` first.
std::optional<std::filesystem::path> modelIn(const std::filesystem::path& folder,
                                             const std::string& prefix,
                                             const std::string& preferred) {
    std::error_code error;
    if (std::filesystem::is_regular_file(folder / preferred, error)) {
        return folder / preferred;
    }
    std::vector<std::filesystem::path> found;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with(prefix) && name.ends_with(".onnx")) {
            found.push_back(entry.path());
        }
    }
    if (found.empty()) {
        return std::nullopt;
    }
    return *std::min_element(found.begin(), found.end());
}

std::string packVoice(const std::filesystem::path& pack, const std::string& name) {
    if (!name.empty()) {
        return name;
    }
    const std::vector<std::string> voices = packVoices(pack);
    if (voices.empty()) {
        throw VoiceError::failed(pack.filename().string() + " holds no voice");
    }
    const auto heart = std::find(voices.begin(), voices.end(), "af_heart");
    return heart != voices.end() ? *heart : voices.front();
}

Vocabulary vocabularyBeside(const std::filesystem::path& directory) {
    const std::filesystem::path file = directory / "vocab.json";
    std::error_code error;
    if (!std::filesystem::exists(file, error)) {
        return kokoroDefaultVocabulary();
    }
    try {
        return parseVocabulary(readFile(file));
    } catch (const std::exception&) {
        throw VoiceError::failed("vocab.json holds no table of ids");
    }
}

}  // namespace

Vocabulary kokoroDefaultVocabulary() {
    return parseVocabulary(kokoroVocabularyJson);
}

std::optional<KokoroFiles> findKokoroFiles(const std::filesystem::path& directory) {
    std::optional<std::filesystem::path> model =
        modelIn(directory, "kokoro-v1.0", "kokoro-v1.0.onnx");
    std::filesystem::path pack = directory / "voices-v1.0.bin";
    if (!model) {
        model = modelIn(directory / "onnx", "model", "model.onnx");
        pack = directory / "voices";
    }
    if (!model) {
        return std::nullopt;
    }
    std::error_code error;
    if (!std::filesystem::exists(pack, error)) {
        throw VoiceError::missing(pack.filename().string());
    }
    return KokoroFiles{*model, pack};
}

KokoroVoice::KokoroVoice(const std::filesystem::path& directory, const KokoroFiles& files,
                         const std::string& name)
    : voice_(packVoice(files.pack, name)),
      styles_(readStyleTable(files.pack, voice_)),
      // British voices are phonemised as British English.
      phonemizer_(
          vocabularyBeside(directory),
          Espeak::preferringOwnData(directory, voice_.starts_with('b') ? "en-gb" : "en-us")),
      model_(files.model),
      modelName_(files.model.filename().string()) {
    for (const char* candidate : {"tokens", "input_ids"}) {
        if (model_.hasInput(candidate, ONNX_TENSOR_ELEMENT_DATA_TYPE_INT64)) {
            idsInput_ = candidate;
        }
    }
    if (idsInput_.empty()) {
        throw VoiceError::failed(modelName_ + ": no int64 input tokens or input_ids");
    }
    for (const char* input : {"style", "speed"}) {
        if (!model_.hasInput(input, ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT)) {
            throw VoiceError::failed(modelName_ + ": no float32 input " + input);
        }
    }
    if (model_.inputNames().size() != 3 || model_.outputNames().empty()) {
        throw VoiceError::failed(modelName_ + ": not a Kokoro model's inputs and outputs");
    }
}

SynthesisResult KokoroVoice::synthesize(std::span<const int64_t> ids, double speed) {
    if (ids.empty() || ids.size() >= styleRows) {
        throw VoiceError::failed(std::to_string(ids.size()) + " ids is past " + modelName_);
    }
    std::vector<int64_t> tokens;
    tokens.reserve(ids.size() + 2);
    tokens.push_back(0);
    tokens.insert(tokens.end(), ids.begin(), ids.end());
    tokens.push_back(0);
    // The style for a text of n tokens is row n of the voice's table.
    const float* row = styles_.data() + ids.size() * styleWidth;
    std::vector<float> style(row, row + styleWidth);
    std::vector<float> speeds = {static_cast<float>(speed)};

    std::vector<std::pair<std::string, Ort::Value>> inputs;
    inputs.emplace_back(idsInput_, tensorOver(tokens, {1, static_cast<int64_t>(tokens.size())}));
    inputs.emplace_back("style", tensorOver(style, {1, static_cast<int64_t>(styleWidth)}));
    inputs.emplace_back("speed", tensorOver(speeds, {1}));
    std::map<std::string, Ort::Value> outputs = model_.run(std::move(inputs), runOptions_);
    const Ort::Value* waveform = tensorOutput(outputs, model_.outputNames().front());
    if (waveform == nullptr) {
        throw VoiceError::failed(modelName_ + " gave no samples");
    }
    return {{}, waveformOutput(*waveform, 1, 2, modelName_)};
}

}  // namespace murmela
