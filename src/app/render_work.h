#pragma once
// What the render thread does: loading the voice and speaking, text to chunks to samples, with
// results handed back as values; and the cancel flag that stops an utterance.

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

#include "app/render_queue.h"
#include "common/error_description.h"
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

// Opens the voice in `directory` (the bundled one when none is given) with its warm-up
// (openWarmVoice), on the render thread.
//
// MURMELA_FAIL_LOAD, read at each load, injects failures for tests: "always" makes every load
// fail and "once" only the first of this process (the only process-wide state here), each with
// VoiceError::failed("load failure injected (MURMELA_FAIL_LOAD=<value>)").
std::shared_ptr<Voice> loadVoice(const std::optional<std::filesystem::path>& directory);

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
    int64_t samples = 0;               // in the chunks handed over
    std::optional<std::string> error;  // the description of the error that ended it
};

// Speaks `text` at `speed` on `queue`: the text is synthesised chunk by chunk as its sentences
// are phonemised, and each chunk, as soon as it is made, then how the synthesis ended, go to
// the inbox's thread. `voice` is called on the render thread; what it throws ends the
// utterance as a synthesis error does. `cancel` is checked before each chunk; once it is
// raised nothing more is handed over, not even the end.
void speakInBackground(RenderQueue& queue, MainThreadInbox& inbox, std::function<Voice&()> voice,
                       std::string text, double speed, std::shared_ptr<const CancelFlag> cancel,
                       std::function<void(PlayableChunk)> chunkReady,
                       std::function<void(const UtteranceEnd&)> synthesised);

}  // namespace murmela
