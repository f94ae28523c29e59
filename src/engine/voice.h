#pragma once
// An opened voice: the engine's public face. It turns text into id chunks (through its
// phonemizer) and each chunk into samples, splitting a chunk that needs more frames than the
// decoder can take.
//
// Immutable after opening apart from the model's runtime sessions: one synthesis at a time, and
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

#include "engine/voice_model.h"
#include "frontend/phonemizer.h"

namespace murmela {

// One chunk of an utterance, handed over as soon as it has been synthesised.
struct SpokenChunk {
    size_t index = 0;          // 0 for the text's first chunk
    std::vector<int64_t> ids;  // the chunk's token ids
    SynthesisResult result;    // its frame counts and samples
};

class Voice {
public:
    // Opens the voice directory: espeak-ng's data, then the vocabulary, then voice.json and the
    // three models. The first failure is passed on unchanged (VoiceError, the file system's,
    // the JSON parser's or the runtime's own error).
    explicit Voice(const std::filesystem::path& directory);

    // The frame counts (boundary tokens included, for every chunk finally synthesised) and the
    // samples of `ids` at `speed` (1 is normal, larger is faster). A chunk too long for the
    // decoder is cut in two, after the comma or space nearest its middle, and the halves are
    // synthesised in turn and joined as they are.
    SynthesisResult synthesize(std::span<const int64_t> ids, double speed);

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

    VoiceModel& model() { return *model_; }
    const Phonemizer& phonemizer() const { return phonemizer_; }

private:
    // Declared first because it is made first: opening goes espeak-ng, vocabulary, models.
    Phonemizer phonemizer_;
    std::unique_ptr<VoiceModel> model_;
    std::atomic<bool> interrupted_{false};
    std::mutex interruption_;  // so that an interruption and a resumption never interleave
};

// Opens the voice in `directory`, or the one among the application's resources ("Voice/") when
// none is given, and warms it up: "Hi." is synthesised at speed 1.0 and thrown away, so the
// runtime plans its first run now rather than on the listener's first word. A directory that
// does not exist gives VoiceError::missing("Voice/"); anything else is the constructor's error or
// the warm-up's, unchanged.
std::unique_ptr<Voice> openWarmVoice(const std::optional<std::filesystem::path>& directory);

}  // namespace murmela
