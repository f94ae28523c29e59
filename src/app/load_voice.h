#pragma once
// Opening the application's voice for interactive use (render thread).

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "engine/voice.h"

namespace murmela {

// The voice directory of the application's resources, "Voice/"; nothing when the resources
// cannot be found. Whether it exists is found out by loading.
std::optional<std::filesystem::path> bundledVoiceDirectory();

// Opens the voice in `directory` and warms it up by synthesising "Hi." at speed 1.0, so the
// first utterance does not pay for the runtime's first run.
//
// `failLoad` is MURMELA_FAIL_LOAD's value, if set: "always" makes every load fail and "once"
// only the first of this process (the only process-wide state here), each with
// VoiceError::failed("load failure injected (MURMELA_FAIL_LOAD=<value>)"). A missing directory
// gives VoiceError::missing("Voice/"). Anything the voice throws is passed on unchanged.
std::shared_ptr<Voice> loadVoice(const std::optional<std::filesystem::path>& directory,
                                 const std::optional<std::string>& failLoad);

}  // namespace murmela
