#pragma once
// Which voice a program speaks with: a voice directory and, for a directory holding several
// voices (a Kokoro pack's styles, a Piper voice's speakers), the name of one.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace murmela {

struct VoiceChoice {
    // A directory alone picks its default voice.
    VoiceChoice(std::filesystem::path voiceDirectory, std::string voiceName = {})
        : directory(std::move(voiceDirectory)), name(std::move(voiceName)) {}

    std::filesystem::path directory;
    std::string name;  // empty for the directory's default voice

    bool operator==(const VoiceChoice&) const = default;
};

// "DIR" or "DIR:NAME". The name follows the last colon, unless the whole text is an existing
// directory (whose name may hold a colon) or what follows the colon holds a slash.
VoiceChoice parseVoiceChoice(std::string_view text);

// The choice in $MURMELA_VOICE, when it is set and not empty.
std::optional<VoiceChoice> voiceChoiceFromEnvironment();

// The voice every program speaks with unless told otherwise: $MURMELA_VOICE's choice, else the
// bundled voice among the resources (VoiceError::missing("Voice/") when there is none).
VoiceChoice defaultVoiceChoice();

}  // namespace murmela
