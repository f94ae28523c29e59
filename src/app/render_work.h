#pragma once
// What the render thread does for speaking and saving: text to chunks to samples, with the
// results handed back as values. Nothing here touches the model.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/cancel_flag.h"
#include "engine/voice.h"

namespace murmela {

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
std::optional<UtteranceEnd> synthesiseUtterance(Voice& voice, std::string_view text, double speed,
                                                const CancelFlag& cancel,
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
