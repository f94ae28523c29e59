#include "voices/voice_catalog.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "common/voice_error.h"
#include "common/voice_format.h"
#include "engine/kokoro_voice.h"
#include "engine/piper_voice.h"
#include "engine/voice_files.h"
#include "engine/voice_pack.h"
#include "files/files.h"

namespace murmela {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

// "en_US", "en-us": a tag as the rest of the world writes it, "en-US": lower case but for a
// region of two letters.
std::string languageTag(std::string text) {
    std::replace(text.begin(), text.end(), '_', '-');
    size_t start = 0;
    for (int part = 0; start <= text.size(); ++part) {
        const size_t end = std::min(text.find('-', start), text.size());
        const bool region = part == 1 && end - start == 2;
        for (size_t index = start; index < end; ++index) {
            const auto letter = static_cast<unsigned char>(text[index]);
            text[index] = static_cast<char>(region ? std::toupper(letter) : std::tolower(letter));
        }
        start = end + 1;
    }
    return text;
}

// Kokoro names its styles by language and gender first ("af_heart": American English,
// female), then by speaker.
void describeKokoroStyle(VoiceDetails& details) {
    static constexpr std::array<std::pair<char, const char*>, 9> languages{{
        {'a', "en-US"},
        {'b', "en-GB"},
        {'e', "es"},
        {'f', "fr-FR"},
        {'h', "hi"},
        {'i', "it"},
        {'j', "ja"},
        {'p', "pt-BR"},
        {'z', "zh-CN"},
    }};
    const std::string& style = details.style;
    details.name = style;
    if (style.size() < 4 || style[2] != '_') {
        return;
    }
    for (const auto& [letter, language] : languages) {
        if (style[0] == letter) {
            details.language = language;
        }
    }
    details.gender = style[1] == 'f' ? "female" : style[1] == 'm' ? "male" : "";
    details.name = style.substr(3);
    details.name[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(details.name[0])));
}

std::string textMember(const json& object, const char* key) {
    const auto found = object.is_object() ? object.find(key) : object.end();
    return found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

}  // namespace

std::string_view kindName(VoiceKind kind) {
    switch (kind) {
        case VoiceKind::threeStage:
            return "murmela";
        case VoiceKind::kokoro:
            return "kokoro";
        case VoiceKind::piper:
            return "piper";
    }
    return "unknown";
}

std::vector<VoiceDetails> readThreeStageVoice(const fs::path& directory) {
    VoiceDescription description;
    try {
        description = VoiceFiles(directory).readDescription();
    } catch (const fs::filesystem_error&) {
        throw VoiceError::missing("voice.json");
    } catch (const json::exception&) {
        throw VoiceError::damaged("voice.json");
    }
    VoiceDetails details;
    details.kind = VoiceKind::threeStage;
    details.name = description.name.empty() ? directory.filename().string() : description.name;
    // The front end speaks American English only.
    details.language = "en-US";
    details.sampleRate = sampleRate;
    details.license = description.license;
    return {details};
}

std::vector<VoiceDetails> readPiperVoices(const fs::path& directory) {
    const std::optional<fs::path> model = findPiperModel(directory);
    if (!model) {
        throw VoiceError::failed("no NAME.onnx with NAME.onnx.json");
    }
    const fs::path file = fs::path(*model).concat(".json");
    std::string text;
    try {
        text = readFile(file);
    } catch (const fs::filesystem_error&) {
        throw VoiceError::missing(file.filename().string());
    }
    return parsePiperDescription(text, file.filename().string());
}

std::vector<VoiceDetails> parsePiperDescription(std::string_view text,
                                                const std::string& fileName) {
    json document;
    try {
        document = json::parse(text);
    } catch (const json::exception&) {
        throw VoiceError::damaged(fileName);
    }
    if (!document.is_object()) {
        throw VoiceError::damaged(fileName);
    }

    VoiceDetails details;
    details.kind = VoiceKind::piper;
    details.name = textMember(document, "dataset");
    if (details.name.empty()) {
        details.name = fs::path(fileName).replace_extension().stem().string();
    }
    // "en_US" in the file; a tag as the rest of the world writes it in the list.
    const json& language = document.contains("language") ? document["language"] : json();
    details.language = textMember(language, "code");
    if (details.language.empty()) {
        details.language = textMember(document.value("espeak", json()), "voice");
    }
    details.language = languageTag(details.language);
    const json audio = document.value("audio", json::object());
    details.quality = textMember(audio, "quality");
    const std::optional<int64_t> rate = audio.is_object() && audio.contains("sample_rate")
                                            ? integerValue(audio["sample_rate"])
                                            : std::nullopt;
    if (!rate || *rate <= 0) {
        throw VoiceError::failed(fileName + ": audio.sample_rate is not a positive number");
    }
    details.sampleRate = *rate;
    details.license = textMember(document, "license");

    // A model of several speakers is one voice per speaker, in the order of their ids.
    const json speakers = document.value("speaker_id_map", json::object());
    if (!speakers.is_object()) {
        throw VoiceError::failed(fileName + ": speaker_id_map is not a map");
    }
    std::vector<std::pair<int64_t, std::string>> bySpeakerId;
    for (const auto& [speaker, id] : speakers.items()) {
        const std::optional<int64_t> number = integerValue(id);
        if (!number) {
            throw VoiceError::failed(fileName + ": speaker " + speaker + " has no number");
        }
        bySpeakerId.emplace_back(*number, speaker);
    }
    if (bySpeakerId.size() <= 1) {
        return {details};
    }
    std::sort(bySpeakerId.begin(), bySpeakerId.end());
    std::vector<VoiceDetails> voices;
    for (const auto& [id, speaker] : bySpeakerId) {
        VoiceDetails voice = details;
        voice.style = speaker;
        voice.name = details.name + " (" + speaker + ")";
        voices.push_back(std::move(voice));
    }
    return voices;
}

std::vector<VoiceDetails> readKokoroVoices(const fs::path& directory) {
    const std::optional<KokoroFiles> files = findKokoroFiles(directory);
    if (!files) {
        throw VoiceError::failed("no Kokoro model (kokoro-v1.0*.onnx or onnx/model*.onnx)");
    }
    std::vector<VoiceDetails> voices;
    for (const std::string& style : packVoices(files->pack)) {
        VoiceDetails details;
        details.kind = VoiceKind::kokoro;
        details.style = style;
        details.sampleRate = sampleRate;
        describeKokoroStyle(details);
        voices.push_back(std::move(details));
    }
    if (voices.empty()) {
        throw VoiceError::failed(files->pack.filename().string() + " holds no voice");
    }
    return voices;
}

std::vector<VoiceDetails> readVoiceDirectory(const fs::path& directory) {
    std::error_code error;
    if (!fs::is_directory(directory, error)) {
        throw VoiceError::missing(directory.filename().string() + "/");
    }
    // In the order the voice itself recognises them.
    if (findKokoroFiles(directory)) {
        return readKokoroVoices(directory);
    }
    if (fs::exists(directory / "voice.json", error)) {
        return readThreeStageVoice(directory);
    }
    if (findPiperModel(directory)) {
        return readPiperVoices(directory);
    }
    throw VoiceError::failed("no voice.json, NAME.onnx with NAME.onnx.json, or Kokoro model in " +
                             directory.filename().string());
}

}  // namespace murmela
