#include "engine/piper_voice.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <system_error>

#include "common/voice_error.h"
#include "common/voice_format.h"
#include "engine/tensor_layout.h"
#include "files/files.h"
#include "frontend/phonemizer.h"
#include "frontend/unicode.h"

namespace murmela {
namespace {

using nlohmann::json;

// The member at `path` ("audio", "sample_rate"), or null when any step is missing.
const json* member(const json& document, std::initializer_list<const char*> path) {
    const json* at = &document;
    for (const char* key : path) {
        if (!at->is_object()) {
            return nullptr;
        }
        const auto found = at->find(key);
        if (found == at->end()) {
            return nullptr;
        }
        at = &*found;
    }
    return at;
}

constexpr char32_t beginning = U'^';
constexpr char32_t end = U'$';
constexpr char32_t pad = U'_';

}  // namespace

PiperSettings parsePiperSettings(std::string_view text, const std::string& file) {
    auto fail = [&file](const std::string& problem) -> VoiceError {
        return VoiceError::failed(file + ": " + problem);
    };
    const json document = json::parse(text);
    if (!document.is_object()) {
        throw fail("not a JSON object");
    }
    PiperSettings settings;
    const json* rate = member(document, {"audio", "sample_rate"});
    const std::optional<int64_t> rateValue = rate ? integerValue(*rate) : std::nullopt;
    if (!rateValue || *rateValue <= 0 || *rateValue > 1000000) {
        throw fail("audio.sample_rate is not a positive number of samples a second");
    }
    settings.sampleRate = *rateValue;
    const json* voice = member(document, {"espeak", "voice"});
    if (voice == nullptr || !voice->is_string() || voice->get<std::string>().empty()) {
        throw fail("espeak.voice is not a voice name");
    }
    settings.espeakVoice = voice->get<std::string>();
    const struct {
        const char* key;
        float* value;
    } scales[] = {{"noise_scale", &settings.noiseScale},
                  {"length_scale", &settings.lengthScale},
                  {"noise_w", &settings.noiseWidth}};
    for (const auto& scale : scales) {
        const json* value = member(document, {"inference", scale.key});
        if (value == nullptr || !value->is_number()) {
            throw fail(std::string("inference.") + scale.key + " is not a number");
        }
        *scale.value = value->get<float>();
    }
    const json* map = member(document, {"phoneme_id_map"});
    if (map == nullptr || !map->is_object()) {
        throw fail("phoneme_id_map is not a map of lists");
    }
    for (const auto& [symbol, ids] : map->items()) {
        const std::u32string scalars = decodeUtf8(symbol);
        if (scalars.size() != 1 || !ids.is_array()) {
            throw fail("phoneme_id_map is not a map of lists");
        }
        std::vector<int64_t> values;
        for (const json& id : ids) {
            const std::optional<int64_t> value = integerValue(id);
            if (!value || *value < 0) {
                throw fail("phoneme_id_map is not a map of lists");
            }
            values.push_back(*value);
        }
        settings.phonemeIds.emplace(scalars.front(), std::move(values));
    }
    for (char32_t required : {beginning, end, pad}) {
        if (!settings.phonemeIds.contains(required)) {
            throw fail("phoneme_id_map has no " + encodeUtf8(std::u32string(1, required)));
        }
    }
    if (const json* speakers = member(document, {"num_speakers"})) {
        const std::optional<int64_t> count = integerValue(*speakers);
        if (!count || *count < 1) {
            throw fail("num_speakers is not a positive number");
        }
        settings.speakers = *count;
    }
    if (const json* names = member(document, {"speaker_id_map"})) {
        if (!names->is_object()) {
            throw fail("speaker_id_map is not a map of numbers");
        }
        for (const auto& [name, id] : names->items()) {
            const std::optional<int64_t> value = integerValue(id);
            if (!value || *value < 0 || *value >= settings.speakers) {
                throw fail("speaker_id_map is not a map of numbers below num_speakers");
            }
            settings.speakerIds.emplace(name, *value);
        }
    }
    return settings;
}

std::optional<std::filesystem::path> findPiperModel(const std::filesystem::path& directory) {
    std::vector<std::filesystem::path> models;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
        if (entry.path().extension() == ".onnx") {
            models.push_back(entry.path());
        }
    }
    if (models.empty()) {
        return std::nullopt;
    }
    std::sort(models.begin(), models.end());
    for (const std::filesystem::path& model : models) {
        if (std::filesystem::exists(model.string() + ".json", error)) {
            return model;
        }
    }
    throw VoiceError::missing(models.front().filename().string() + ".json");
}

namespace {

PiperSettings readSettings(const std::filesystem::path& model) {
    const std::filesystem::path file = model.string() + ".json";
    const std::string name = file.filename().string();
    std::string text;
    try {
        text = readFile(file);
    } catch (const std::filesystem::filesystem_error&) {
        throw VoiceError::missing(name);
    }
    try {
        return parsePiperSettings(text, name);
    } catch (const json::exception&) {
        throw VoiceError::failed(name + ": not JSON");
    }
}

int64_t chosenSpeaker(const PiperSettings& settings, const std::string& name,
                      const std::string& file) {
    if (name.empty()) {
        return 0;
    }
    if (const auto found = settings.speakerIds.find(name); found != settings.speakerIds.end()) {
        return found->second;
    }
    throw VoiceError::failed(file + " has no speaker " + name);
}

}  // namespace

PiperVoice::PiperVoice(const std::filesystem::path& model, const std::string& name)
    : modelName_(model.filename().string()),
      settings_(readSettings(model)),
      speaker_(chosenSpeaker(settings_, name, modelName_ + ".json")),
      espeak_(Espeak::preferringOwnData(model.parent_path(), settings_.espeakVoice)),
      model_(model) {
    for (const char* input : {"input", "input_lengths"}) {
        if (!model_.hasInput(input, ONNX_TENSOR_ELEMENT_DATA_TYPE_INT64)) {
            throw VoiceError::failed(modelName_ + ": no int64 input " + input);
        }
    }
    if (!model_.hasInput("scales", ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT)) {
        throw VoiceError::failed(modelName_ + ": no float32 input scales");
    }
    const bool takesSpeaker = model_.hasInput("sid", ONNX_TENSOR_ELEMENT_DATA_TYPE_INT64);
    if (takesSpeaker != (settings_.speakers > 1) ||
        model_.inputNames().size() != (takesSpeaker ? 4u : 3u)) {
        throw VoiceError::failed(modelName_ + ": its inputs are not those of a " +
                                 (settings_.speakers > 1 ? "multi" : "single") +
                                 "-speaker Piper voice");
    }
    if (model_.outputNames().empty()) {
        throw VoiceError::failed(modelName_ + ": no output");
    }
    if (settings_.sampleRate != sampleRate) {
        resampler_ = std::make_unique<Resampler>(static_cast<double>(settings_.sampleRate),
                                                 static_cast<double>(sampleRate));
    }
}

std::vector<int64_t> PiperVoice::sentenceIds(std::u32string_view phonemes) const {
    std::vector<int64_t> ids;
    auto add = [&](char32_t symbol) {
        const auto found = settings_.phonemeIds.find(symbol);
        if (found == settings_.phonemeIds.end()) {
            return false;
        }
        ids.insert(ids.end(), found->second.begin(), found->second.end());
        return true;
    };
    add(beginning);
    add(pad);
    for (char32_t symbol : phonemes) {
        if (add(symbol)) {
            add(pad);
        }
    }
    add(end);
    return ids;
}

void PiperVoice::chunks(std::string_view text,
                        const std::function<bool(std::vector<int64_t>)>& each) const {
    forEachSentence(espeak_, text, PhonemeStyle::espeakIpa, [&](std::u32string phonemes) {
        const std::u32string points = canonicalDecomposition(phonemes);
        if (points.empty()) {
            return true;
        }
        // Cut like any chunk, at the comma or space nearest the middle.
        const std::vector<int64_t> scalars(points.begin(), points.end());
        for (const std::vector<int64_t>& piece :
             Phonemizer::splitIds(scalars, int64_t{U','}, int64_t{U' '})) {
            const std::u32string part(piece.begin(), piece.end());
            if (!each(sentenceIds(part))) {
                return false;
            }
        }
        return true;
    });
}

void PiperVoice::beginSpeech() {
    if (resampler_) {
        resampler_->reset();
    }
}

SynthesisResult PiperVoice::synthesize(std::span<const int64_t> ids, double speed) {
    if (ids.empty()) {
        throw VoiceError::failed("no ids for " + modelName_);
    }
    std::vector<int64_t> input(ids.begin(), ids.end());
    std::vector<int64_t> lengths = {static_cast<int64_t>(input.size())};
    std::vector<float> scales = {settings_.noiseScale,
                                 static_cast<float>(settings_.lengthScale / speed),
                                 settings_.noiseWidth};
    std::vector<int64_t> speakers = {speaker_};
    std::vector<std::pair<std::string, Ort::Value>> inputs;
    inputs.emplace_back("input", tensorOver(input, {1, lengths[0]}));
    inputs.emplace_back("input_lengths", tensorOver(lengths, {1}));
    inputs.emplace_back("scales", tensorOver(scales, {3}));
    if (settings_.speakers > 1) {
        inputs.emplace_back("sid", tensorOver(speakers, {1}));
    }
    std::map<std::string, Ort::Value> outputs = model_.run(std::move(inputs), runOptions_);
    const Ort::Value* waveform = tensorOutput(outputs, model_.outputNames().front());
    if (waveform == nullptr) {
        throw VoiceError::failed(modelName_ + " gave no samples");
    }
    std::vector<float> samples = waveformOutput(*waveform, 3, 3, modelName_);
    samples.resize(samples.size() + static_cast<size_t>(silenceSeconds *
                                                        static_cast<double>(settings_.sampleRate)),
                   0.0f);
    if (resampler_) {
        samples = resampler_->process(samples);
    }
    return {{}, std::move(samples)};
}

}  // namespace murmela
