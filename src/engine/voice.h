#pragma once
// An opened voice: the engine's public face. Its kind, recognised from the files in its
// directory, turns text into id chunks and each chunk into samples; speaking is the same for
// every kind.
//
// Immutable after opening apart from the models' runtime sessions: one synthesis at a time, and
// interrupt() is the one member that another thread may call meanwhile.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "engine/speech_model.h"
#include "engine/voice_choice.h"

namespace murmela {

// One chunk of an utterance, handed over as soon as it has been synthesised.
struct SpokenChunk {
    size_t index = 0;          // 0 for the text's first chunk
    std::vector<int64_t> ids;  // the chunk's token ids
    SynthesisResult result;    // its frame counts (when the kind has them) and samples
};

// The kind of voice in `choice`'s directory, opened:
// - Kokoro, when it holds kokoro-v1.0*.onnx or onnx/model*.onnx (the name picks the pack's
//   voice);
// - Piper, when it holds NAME.onnx and no voice.json (the name picks the speaker);
// - else the three-stage voice of voice.json, which has one voice and ignores the name.
// The kind's own errors are passed on unchanged.
std::unique_ptr<SpeechModel> openSpeechModel(const VoiceChoice& choice);

class Voice {
public:
    // Opens the chosen voice (openSpeechModel).
    explicit Voice(const VoiceChoice& choice);
    explicit Voice(std::unique_ptr<SpeechModel> kind);

    // The samples of one chunk of `ids` at `speed` (1 is normal, larger is faster).
    SynthesisResult synthesize(std::span<const int64_t> ids, double speed) {
        return kind_->synthesize(ids, speed);
    }

    // The id chunks of `text`, as speak() synthesises them.
    void chunks(std::string_view text,
                const std::function<bool(std::vector<int64_t>)>& each) const {
        kind_->chunks(text, each);
    }

    // The one way text becomes sound: `text` cut into chunks as its sentences are phonemised,
    // each chunk synthesised at `speed` and handed to `spoken` before the next is begun, so a
    // caller can play or write the first while the rest is still unread. Stops, phonemising
    // and synthesising nothing more, as soon as `spoken` returns false. Returns the number of
    // chunks handed over. A synthesis error is passed on unchanged; chunks handed over before
    // it stay handed over.
    size_t speak(std::string_view text, double speed,
                 const std::function<bool(SpokenChunk&&)>& spoken);

    // Any thread: the speaking under way stops as soon as it can, in the middle of a model run
    // rather than at the next chunk, handing nothing more over; so does every later one until
    // resume(). A speech that stops this way returns as if `spoken` had refused a chunk.
    void interrupt();
    // Lets speaking go ahead again; called on the speaking thread, between speeches.
    void resume();

private:
    std::unique_ptr<SpeechModel> kind_;
    std::atomic<bool> interrupted_{false};
    std::mutex interruption_;  // so that an interruption and a resumption never interleave
};

// Opens the voice `choice` names, or, when there is none, the one defaultVoiceChoice() gives
// ($MURMELA_VOICE, else the bundled voice among the application's resources), and warms it
// up: "Hi." is synthesised at speed 1.0 and thrown away, so the runtime plans its first run
// now rather than on the listener's first word. A directory that does not exist gives
// VoiceError::missing("Voice/"); anything else is the voice's error or the warm-up's,
// unchanged.
std::unique_ptr<Voice> openWarmVoice(const std::optional<VoiceChoice>& choice);

}  // namespace murmela
