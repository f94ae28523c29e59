#include "engine/voice.h"

#include <string>
#include <system_error>
#include <vector>

#include "common/voice_error.h"
#include "engine/voice_files.h"
#include "engine/voice_model.h"
#include "logging/log.h"

namespace murmela {

Voice::Voice(const std::filesystem::path& directory)
    : phonemizer_(directory / "vocab.json", Espeak(directory)),
      model_(std::make_unique<VoiceModel>(VoiceFiles(directory))) {}

SynthesisResult Voice::synthesize(std::span<const int64_t> ids, double speed) {
    int64_t frames = 0;
    try {
        return model_->synthesizeChunk(ids, speed);
    } catch (const TooLong& tooLong) {
        frames = tooLong.frames;
    }
    const auto count = static_cast<int64_t>(ids.size());
    if (count <= 1) {
        throw VoiceError::failed(std::to_string(frames) + " frames for one id");
    }
    const std::vector<int64_t>& buckets = model_->decoderBuckets();
    const int64_t last = buckets.empty() ? 0 : buckets.back();
    log::info("voice: " + std::to_string(frames) + " frames is past " + std::to_string(last) +
              "; splitting the chunk");

    const size_t split = Phonemizer::splitIndex(ids, phonemizer_.id(U","), phonemizer_.id(U" "));
    SynthesisResult left = synthesize(ids.first(split), speed);
    SynthesisResult right = synthesize(ids.subspan(split), speed);
    left.frameCounts.insert(left.frameCounts.end(), right.frameCounts.begin(),
                            right.frameCounts.end());
    left.samples.insert(left.samples.end(), right.samples.begin(), right.samples.end());
    return left;
}

size_t Voice::speak(std::string_view text, double speed,
                    const std::function<bool(SpokenChunk&&)>& spoken) {
    size_t handedOver = 0;
    phonemizer_.chunks(text, [&](std::vector<int64_t> ids) {
        if (interrupted_) {
            return false;
        }
        SynthesisResult result;
        try {
            result = synthesize(ids, speed);
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
    model_->interrupt();
}

void Voice::resume() {
    std::lock_guard guard(interruption_);
    model_->resume();
    interrupted_ = false;
}

std::unique_ptr<Voice> openWarmVoice(const std::optional<std::filesystem::path>& directory) {
    std::error_code ignored;
    if (directory && !std::filesystem::is_directory(*directory, ignored)) {
        throw VoiceError::missing("Voice/");
    }
    auto voice =
        std::make_unique<Voice>(directory ? *directory : VoiceFiles::bundled().directory());
    voice->speak("Hi.", 1.0, [](SpokenChunk&&) { return false; });
    return voice;
}

}  // namespace murmela
