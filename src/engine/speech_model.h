#pragma once
// The speech model of a kind of voice: what it supplies to the one speaking path, how a text
// becomes chunks of ids and how the ids of one chunk become samples at 24 kHz.
//
// A kind is used by one speaking thread at a time; interrupt() is the one member that another
// thread may call meanwhile.

#include <cstdint>
#include <functional>
#include <span>
#include <string_view>
#include <vector>

namespace murmela {

// What synthesising a chunk of token ids gives.
struct SynthesisResult {
    // Frames per framed token (the boundary tokens included), in order; empty for a kind whose
    // model does not report durations.
    std::vector<int64_t> frameCounts;
    // Mono samples at 24000 Hz, neither clipped nor scaled.
    std::vector<float> samples;
};

class SpeechModel {
public:
    virtual ~SpeechModel() = default;

    // The id chunks of `text` in reading order, each handed to `each` as soon as it is made;
    // stops when `each` returns false.
    virtual void chunks(std::string_view text,
                        const std::function<bool(std::vector<int64_t>)>& each) const = 0;

    // One chunk's samples at `speed` (1 is normal, larger is faster). Throws VoiceError for
    // what the voice's models got wrong, and the runtime's own errors.
    virtual SynthesisResult synthesize(std::span<const int64_t> ids, double speed) = 0;

    // A new text begins: whatever one chunk left for the next is dropped.
    virtual void beginSpeech() {}

    // Any thread: the model run under way, and every later one, ends at once with the
    // runtime's error, until resume().
    virtual void interrupt() = 0;
    // Lets runs go ahead again; called only when no run is under way.
    virtual void resume() = 0;
};

}  // namespace murmela
