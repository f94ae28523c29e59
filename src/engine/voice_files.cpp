#include "engine/voice_files.h"

#include <nlohmann/json.hpp>

#include "common/voice_error.h"
#include "common/voice_format.h"
#include "files/files.h"

namespace murmela {
namespace {

using nlohmann::json;

bool holds(const json& interface, const char* key, int64_t required) {
    auto member = interface.find(key);
    if (member == interface.end()) {
        return false;
    }
    std::optional<int64_t> value = integerValue(*member);
    return value && *value == required;
}

std::optional<std::vector<int64_t>> buckets(const json& interface, const char* key) {
    auto member = interface.find(key);
    if (member == interface.end() || !member->is_array() || member->empty()) {
        return std::nullopt;
    }
    std::vector<int64_t> result;
    for (const json& element : *member) {
        std::optional<int64_t> value = integerValue(element);
        if (!value) {
            return std::nullopt;
        }
        result.push_back(*value);
    }
    return result;
}

}  // namespace

std::optional<VoiceFiles> VoiceFiles::locate() {
    std::optional<std::filesystem::path> resources = resourceDirectory();
    if (!resources) {
        return std::nullopt;
    }
    return VoiceFiles(*resources / "Voice");
}

VoiceFiles VoiceFiles::bundled() {
    std::optional<VoiceFiles> files = locate();
    std::error_code error;
    if (!files || !std::filesystem::is_directory(files->directory(), error)) {
        throw VoiceError::missing("Voice/");
    }
    return *files;
}

VoiceDescription VoiceFiles::readDescription() const {
    const json document = json::parse(readFile(directory_ / "voice.json"));
    auto text = [&document](const char* key) {
        const auto found = document.is_object() ? document.find(key) : document.end();
        return found != document.end() && found->is_string() ? found->get<std::string>()
                                                             : std::string();
    };
    return {text("name"), text("description"), text("license"), text("licenseLink")};
}

VoiceInterface VoiceFiles::readInterface() const {
    std::string text;
    try {
        text = readFile(directory_ / "voice.json");
    } catch (const std::filesystem::filesystem_error&) {
        throw VoiceError::missing("voice.json");
    }
    return parseInterface(text);
}

VoiceInterface VoiceFiles::parseInterface(std::string_view text) {
    json document = json::parse(text);

    if (!document.is_object()) {
        throw VoiceError::damaged("voice.json");
    }
    auto interface = document.find("interface");
    if (interface == document.end() || !interface->is_object()) {
        throw VoiceError::damaged("voice.json");
    }
    auto programs = document.find("programs");
    if (programs == document.end() || !programs->is_object()) {
        throw VoiceError::damaged("voice.json");
    }
    VoiceInterface result;
    for (const auto& [name, stem] : programs->items()) {
        if (!stem.is_string()) {
            throw VoiceError::damaged("voice.json");
        }
        result.programs.emplace(name, stem.get<std::string>());
    }

    // Checked in this order; the message deliberately does not say which key failed.
    std::optional<std::vector<int64_t>> encoder, decoder;
    bool valid = holds(*interface, "sampleRate", model_dimensions::sampleRate) &&
                 holds(*interface, "hop", model_dimensions::hop) &&
                 holds(*interface, "nFft", model_dimensions::nFft) &&
                 holds(*interface, "enc", model_dimensions::encoderWidth) &&
                 (encoder = buckets(*interface, "encoderBuckets")) &&
                 (decoder = buckets(*interface, "decoderBuckets"));
    if (!valid) {
        throw VoiceError::damaged("voice.json interface");
    }
    result.encoderBuckets = std::move(*encoder);
    result.decoderBuckets = std::move(*decoder);
    return result;
}

ModelSession VoiceFiles::loadModel(const std::string& name, const Programs& programs) const {
    auto program = programs.find(name);
    if (program == programs.end()) {
        throw VoiceError::damaged("voice.json programs." + name);
    }
    const std::string& stem = program->second;
    std::filesystem::path file = directory_ / (stem + ".onnx");
    std::error_code error;
    if (!std::filesystem::exists(file, error)) {
        throw VoiceError::missing(stem);
    }
    return ModelSession(file);
}

}  // namespace murmela
