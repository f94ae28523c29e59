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
#include "engine/voice_files.h"
#include "files/files.h"

namespace murmela {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

// The directory's entries of one type, sorted by name so every listing comes out the same.
std::vector<fs::path> entries(const fs::path& directory, bool directories) {
    std::vector<fs::path> found;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory, error)) {
        std::error_code typeError;
        if (directories ? entry.is_directory(typeError) : entry.is_regular_file(typeError)) {
            found.push_back(entry.path());
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

// Models that are not Piper's: .onnx files without a NAME.onnx.json beside them.
std::vector<fs::path> modelsWithoutPiperDescription(const fs::path& directory) {
    std::vector<fs::path> models;
    for (const fs::path& file : entries(directory, false)) {
        std::error_code error;
        if (file.extension() == ".onnx" && !fs::exists(fs::path(file).concat(".json"), error)) {
            models.push_back(file);
        }
    }
    return models;
}

std::vector<fs::path> piperDescriptions(const fs::path& directory) {
    std::vector<fs::path> descriptions;
    for (const fs::path& file : entries(directory, false)) {
        if (file.filename().string().ends_with(".onnx.json")) {
            descriptions.push_back(file);
        }
    }
    return descriptions;
}

bool startsLikeZip(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    std::array<char, 4> magic{};
    return stream.read(magic.data(), magic.size()) && std::string_view(magic.data(), 4) == "PK\3\4";
}

// A Kokoro pack: .npz files of styles at the top, or a voices/ folder of one file per style.
std::vector<fs::path> kokoroPacks(const fs::path& directory) {
    std::vector<fs::path> packs;
    for (const fs::path& file : entries(directory, false)) {
        if (file.extension() == ".bin" && startsLikeZip(file)) {
            packs.push_back(file);
        }
    }
    return packs;
}

std::vector<std::string> kokoroStyleFiles(const fs::path& directory) {
    std::vector<std::string> styles;
    for (const fs::path& file : entries(directory / "voices", false)) {
        if (file.extension() == ".bin") {
            styles.push_back(file.stem().string());
        }
    }
    return styles;
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

uint32_t littleEndian(const std::string& bytes, size_t at, size_t size) {
    uint64_t value = 0;
    for (size_t i = size; i-- > 0;) {
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    }
    return static_cast<uint32_t>(value);
}

uint64_t littleEndian64(const std::string& bytes, size_t at) {
    return static_cast<uint64_t>(littleEndian(bytes, at + 4, 4)) << 32 | littleEndian(bytes, at, 4);
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
    const std::vector<fs::path> descriptions = piperDescriptions(directory);
    if (descriptions.size() != 1) {
        throw VoiceError::failed(descriptions.empty() ? "no NAME.onnx.json"
                                                      : "more than one NAME.onnx.json");
    }
    const fs::path& file = descriptions.front();
    std::error_code error;
    if (!fs::is_regular_file(fs::path(file).replace_extension(), error)) {
        throw VoiceError::missing(fs::path(file).replace_extension().filename().string());
    }
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
    std::replace(details.language.begin(), details.language.end(), '_', '-');
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
    const std::vector<fs::path> models = modelsWithoutPiperDescription(directory);
    if (models.size() != 1) {
        throw VoiceError::failed(models.empty() ? "no Kokoro model (.onnx)"
                                                : "more than one Kokoro model (.onnx)");
    }
    std::vector<std::string> styles = kokoroStyleFiles(directory);
    for (const fs::path& pack : kokoroPacks(directory)) {
        const std::vector<std::string> names = npzArrayNames(pack);
        styles.insert(styles.end(), names.begin(), names.end());
    }
    std::sort(styles.begin(), styles.end());
    styles.erase(std::unique(styles.begin(), styles.end()), styles.end());
    if (styles.empty()) {
        throw VoiceError::failed("no Kokoro voice pack (voices-*.bin or voices/NAME.bin)");
    }
    std::vector<VoiceDetails> voices;
    for (const std::string& style : styles) {
        VoiceDetails details;
        details.kind = VoiceKind::kokoro;
        details.style = style;
        details.sampleRate = sampleRate;
        describeKokoroStyle(details);
        voices.push_back(std::move(details));
    }
    return voices;
}

std::vector<VoiceDetails> readVoiceDirectory(const fs::path& directory) {
    std::error_code error;
    if (!fs::is_directory(directory, error)) {
        throw VoiceError::missing(directory.filename().string() + "/");
    }
    if (fs::exists(directory / "voice.json", error)) {
        return readThreeStageVoice(directory);
    }
    if (!piperDescriptions(directory).empty()) {
        return readPiperVoices(directory);
    }
    if (!modelsWithoutPiperDescription(directory).empty()) {
        return readKokoroVoices(directory);
    }
    throw VoiceError::failed("no voice.json, NAME.onnx with NAME.onnx.json, or Kokoro model in " +
                             directory.filename().string());
}

std::vector<std::string> npzArrayNames(const fs::path& file) {
    const std::string fileName = file.filename().string();
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        throw VoiceError::missing(fileName);
    }
    auto readAt = [&](uint64_t offset, uint64_t size) {
        std::string bytes(size, '\0');
        stream.clear();
        if (!stream.seekg(static_cast<std::streamoff>(offset)) ||
            !stream.read(bytes.data(), static_cast<std::streamsize>(size))) {
            throw VoiceError::damaged(fileName);
        }
        return bytes;
    };
    stream.seekg(0, std::ios::end);
    const uint64_t fileSize = static_cast<uint64_t>(stream.tellg());

    // The end record (22 bytes, then a comment of up to 64 KiB) tells where the central
    // directory is.
    constexpr uint64_t endRecordSize = 22;
    constexpr uint64_t longestComment = 65535;
    if (fileSize < endRecordSize) {
        throw VoiceError::damaged(fileName);
    }
    const uint64_t tailSize = std::min(fileSize, endRecordSize + longestComment);
    const std::string tail = readAt(fileSize - tailSize, tailSize);
    const size_t end = tail.rfind(std::string_view("PK\5\6", 4));
    if (end == std::string::npos || end + endRecordSize > tail.size()) {
        throw VoiceError::damaged(fileName);
    }
    uint64_t count = littleEndian(tail, end + 10, 2);
    uint64_t directorySize = littleEndian(tail, end + 12, 4);
    uint64_t directoryOffset = littleEndian(tail, end + 16, 4);
    if (count == 0xFFFF || directoryOffset == 0xFFFFFFFF) {
        // Zip64: a locator just before the end record points at the larger end record.
        constexpr size_t locatorSize = 20;
        if (end < locatorSize || tail.compare(end - locatorSize, 4, "PK\6\7") != 0) {
            throw VoiceError::damaged(fileName);
        }
        const uint64_t recordOffset = littleEndian64(tail, end - locatorSize + 8);
        if (recordOffset > fileSize || fileSize - recordOffset < 56) {
            throw VoiceError::damaged(fileName);
        }
        const std::string record = readAt(recordOffset, 56);
        if (record.compare(0, 4, "PK\6\6") != 0) {
            throw VoiceError::damaged(fileName);
        }
        count = littleEndian64(record, 32);
        directorySize = littleEndian64(record, 40);
        directoryOffset = littleEndian64(record, 48);
    }
    if (directoryOffset > fileSize || directorySize > fileSize - directoryOffset) {
        throw VoiceError::damaged(fileName);
    }
    const std::string directory = readAt(directoryOffset, directorySize);

    std::vector<std::string> names;
    constexpr size_t entryHeaderSize = 46;
    size_t at = 0;
    for (uint64_t entry = 0; entry < count; ++entry) {
        if (directory.size() - at < entryHeaderSize || directory.compare(at, 4, "PK\1\2") != 0) {
            throw VoiceError::damaged(fileName);
        }
        const size_t nameSize = littleEndian(directory, at + 28, 2);
        const size_t rest =
            nameSize + littleEndian(directory, at + 30, 2) + littleEndian(directory, at + 32, 2);
        if (directory.size() - at - entryHeaderSize < rest) {
            throw VoiceError::damaged(fileName);
        }
        std::string name = directory.substr(at + entryHeaderSize, nameSize);
        if (name.ends_with(".npy")) {
            name.resize(name.size() - 4);
        }
        names.push_back(std::move(name));
        at += entryHeaderSize + rest;
    }
    return names;
}

}  // namespace murmela
