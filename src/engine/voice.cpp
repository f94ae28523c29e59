#include "engine/voice.h"

#include <system_error>

#include "common/voice_error.h"
#include "engine/kokoro_voice.h"
#include "engine/piper_voice.h"
#include "engine/three_stage_voice.h"

namespace murmela {

std::unique_ptr<SpeechModel> openSpeechModel(const VoiceChoice& choice) {
    const std::filesystem::path& directory = choice.directory;
    if (std::optional<KokoroFiles> kokoro = findKokoroFiles(directory)) {
        return std::make_unique<KokoroVoice>(directory, *kokoro, choice.name);
    }
    std::error_code ignored;
    if (!std::filesystem::exists(directory / "voice.json", ignored)) {
        if (std::optional<std::filesystem::path> piper = findPiperModel(directory)) {
            return std::make_unique<PiperVoice>(*piper, choice.name);
        }
    }
    return std::make_unique<ThreeStageVoice>(directory);
}

Voice::Voice(const VoiceChoice& choice) : kind_(openSpeechModel(choice)) {}

Voice::Voice(std::unique_ptr<SpeechModel> kind) : kind_(std::move(kind)) {}

size_t Voice::speak(std::string_view text, double speed,
                    const std::function<bool(SpokenChunk&&)>& spoken) {
    size_t handedOver = 0;
    kind_->beginSpeech();
    kind_->chunks(text, [&](std::vector<int64_t> ids) {
        if (interrupted_) {
            return false;
        }
        SynthesisResult result;
        try {
            result = kind_->synthesize(ids, speed);
        } catch (const Ort::Exception&) {
            // The run that interrupt() ended reports it as an error of its own.
            if (interrupted_) {
                return false;
            }
            throw;
        }
        return spoken(SpokenChunk{handedOver++, std::move(ids), std::move(result)});
    });
    return handedOver;
}

void Voice::interrupt() {
    std::lock_guard guard(interruption_);
    interrupted_ = true;
    kind_->interrupt();
}

void Voice::resume() {
    std::lock_guard guard(interruption_);
    kind_->resume();
    interrupted_ = false;
}

std::unique_ptr<Voice> openWarmVoice(const std::optional<VoiceChoice>& choice) {
    const VoiceChoice chosen = choice ? *choice : defaultVoiceChoice();
    std::error_code ignored;
    if (!std::filesystem::is_directory(chosen.directory, ignored)) {
        throw VoiceError::missing("Voice/");
    }
    auto voice = std::make_unique<Voice>(chosen);
    voice->speak("Hi.", 1.0, [](SpokenChunk&&) { return false; });
    return voice;
}

}  // namespace murmela
