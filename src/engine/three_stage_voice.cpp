#include "engine/three_stage_voice.h"

#include <string>

#include "common/voice_error.h"
#include "logging/log.h"

namespace murmela {

ThreeStageVoice::ThreeStageVoice(const std::filesystem::path& directory)
    : phonemizer_(directory / "vocab.json", Espeak(directory)), model_(VoiceFiles(directory)) {}

SynthesisResult ThreeStageVoice::synthesize(std::span<const int64_t> ids, double speed) {
    int64_t frames = 0;
    try {
        return model_.synthesizeChunk(ids, speed);
    } catch (const TooLong& tooLong) {
        frames = tooLong.frames;
    }
    const auto count = static_cast<int64_t>(ids.size());
    if (count <= 1) {
        throw VoiceError::failed(std::to_string(frames) + " frames for one id");
    }
    const std::vector<int64_t>& buckets = model_.decoderBuckets();
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

}  // namespace murmela
