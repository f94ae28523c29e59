#include "engine/voice_choice.h"

#include <cstdlib>
#include <system_error>

#include "engine/voice_files.h"

namespace murmela {

VoiceChoice parseVoiceChoice(std::string_view text) {
    std::error_code ignored;
    const size_t colon = text.rfind(':');
    if (colon == std::string_view::npos ||
        std::filesystem::is_directory(std::filesystem::path(text), ignored) ||
        text.substr(colon + 1).find('/') != std::string_view::npos) {
        return VoiceChoice(std::filesystem::path(text));
    }
    return VoiceChoice(std::filesystem::path(text.substr(0, colon)),
                       std::string(text.substr(colon + 1)));
}

std::optional<VoiceChoice> voiceChoiceFromEnvironment() {
    const char* configured = std::getenv("MURMELA_VOICE");
    if (configured == nullptr || *configured == '\0') {
        return std::nullopt;
    }
    return parseVoiceChoice(configured);
}

VoiceChoice defaultVoiceChoice() {
    if (std::optional<VoiceChoice> configured = voiceChoiceFromEnvironment()) {
        return *configured;
    }
    return VoiceChoice(VoiceFiles::bundled().directory());
}

}  // namespace murmela
