#include "engine/voice_files.h"

#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

#include "engine/resources.h"
#include "engine/voice_error.h"
#include "files/read_file.h"

namespace murmela {
namespace {

using nlohmann::json;

// The engine is built for these; voice.json must declare exactly them.
constexpr int64_t sampleRate = 24000;
constexpr int64_t hop = 300;
constexpr int64_t nFft = 1024;
constexpr int64_t encoderWidth = 256;

// A JSON number read through its integer value, so 24000.0 counts as 24000. Booleans are not
// numbers here.
std::optional<int64_t> integerValue(const json& value) {
    if (value.is_number_integer()) {
        if (value.is_number_unsigned() &&
            value.get<uint64_t>() > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
            return std::numeric_limits<int64_t>::max();
        }
        return value.get<int64_t>();
    }
    if (value.is_number_float()) {
        double number = value.get<double>();
        if (number >= 9.2233720368547758e18) {
            return std::numeric_limits<int64_t>::max();
        }
        if (number <= -9.2233720368547758e18) {
            return std::numeric_limits<int64_t>::min();
        }
        return static_cast<int64_t>(std::trunc(number));
    }
    return std::nullopt;
}

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

VoiceInterface VoiceFiles::readInterface() const {
    std::string text;
    try {
        text = readFile(directory_ / "voice.json");
    } catch (const std::filesystem::filesystem_error&) {
        throw VoiceError::missing("voice.json");
    }
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
    bool valid = holds(*interface, "sampleRate", sampleRate) && holds(*interface, "hop", hop) &&
                 holds(*interface, "nFft", nFft) && holds(*interface, "enc", encoderWidth) &&
                 (encoder = buckets(*interface, "encoderBuckets")) &&
                 (decoder = buckets(*interface, "decoderBuckets"));
    if (!valid) {
        throw VoiceError::damaged("voice.json interface");
    }
    result.encoderBuckets = std::move(*encoder);
    result.decoderBuckets = std::move(*decoder);
    return result;
}

ModelSession VoiceFiles::loadModel(const std::string& name, ComputeUnits units,
                                   const Programs& programs) const {
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
    return ModelSession(file, units);
}

}  // namespace murmela
