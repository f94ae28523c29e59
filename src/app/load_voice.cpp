#include "app/load_voice.h"

#include <atomic>

#include "common/voice_error.h"
#include "engine/voice_files.h"

namespace murmela {
namespace {

// Lives in memory only, so a new process fails once again.
std::atomic<bool> failureInjected{false};

void injectFailure(const std::optional<std::string>& failLoad) {
    if (!failLoad) {
        return;
    }
    const bool fail = *failLoad == "always" || (*failLoad == "once" && !failureInjected.load());
    if (fail) {
        failureInjected.store(true);
        throw VoiceError::failed("load failure injected (MURMELA_FAIL_LOAD=" + *failLoad + ")");
    }
}

}  // namespace

std::optional<std::filesystem::path> bundledVoiceDirectory() {
    if (std::optional<VoiceFiles> files = VoiceFiles::locate()) {
        return files->directory();
    }
    return std::nullopt;
}

std::shared_ptr<Voice> loadVoice(const std::optional<std::filesystem::path>& directory,
                                 const std::optional<std::string>& failLoad) {
    injectFailure(failLoad);
    std::error_code ignored;
    if (!directory || !std::filesystem::is_directory(*directory, ignored)) {
        throw VoiceError::missing("Voice/");
    }
    auto voice = std::make_shared<Voice>(*directory);
    // The warm-up: the runtime plans its first run now rather than on the user's first word.
    voice->speak("Hi.", 1.0, [](SpokenChunk&&) { return false; });
    return voice;
}

}  // namespace murmela
