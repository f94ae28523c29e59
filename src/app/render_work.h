#pragma once
// What the render thread does: loading the voice (with its warm-up) and speaking and saving,
// text to chunks to samples, with results handed back as values; the cancel flag that stops an
// utterance; and how an error is described to the log.

#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/voice.h"

namespace murmela {

// Tells a running speak request to stop. The main thread raises it, the synthesis loop checks
// it between steps; once raised it stays raised. Safe to use from any thread.
class CancelFlag {
public:
    void cancel() {
        std::lock_guard guard(lock_);
        on_ = true;
    }
    bool isCancelled() const {
        std::lock_guard guard(lock_);
        return on_;
    }

private:
    mutable std::mutex lock_;
    bool on_ = false;
};

// What an error caught with catch (...) says: what() for a std::exception.
inline std::string errorDescription(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& caught) {
        return caught.what();
    } catch (...) {
        return "unknown error";
    }
}

// Opening the application's voice for interactive use (render thread).

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

// What the render thread does for speaking and saving: text to chunks to samples, with the
// results handed back as values. Nothing here touches the model.

// One synthesised chunk of an utterance.
struct PlayableChunk {
    bool first = false;
    int64_t milliseconds = 0;  // its synthesis took, truncated
    size_t ids = 0;            // token ids in the chunk
    std::vector<float> samples;
};

// How an utterance's synthesis ended.
struct UtteranceEnd {
    size_t chunks = 0;                 // chunks the text gave, up to the one that failed
    std::optional<std::string> error;  // the description of the error that ended it
};

// Synthesises `text` chunk by chunk as its sentences are phonemised, handing each chunk over
// as soon as it is made. `cancel` is checked before each chunk; once raised, nothing more is
// handed over and nothing is returned. A synthesis error ends the utterance.
std::optional<UtteranceEnd> synthesiseUtterance(
    Voice& voice, std::string_view text, double speed, const CancelFlag& cancel,
    const std::function<void(PlayableChunk)>& chunkReady);

// How a save ended.
struct SaveOutcome {
    enum class Kind { written, empty, failed };
    Kind kind = Kind::failed;
    std::string error;  // for `failed`
};

// Synthesises the whole of `text` and writes it to `destination` atomically as a 16-bit PCM
// WAV at 24000 Hz; writes nothing when the text gives no chunk. `abandon` is checked between
// chunks: once raised, nothing is written and nothing is returned.
std::optional<SaveOutcome> renderToWav(Voice& voice, std::string_view text, double speed,
                                       const std::filesystem::path& destination,
                                       const CancelFlag& abandon);

}  // namespace murmela
