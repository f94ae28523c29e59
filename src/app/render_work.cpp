#include "app/render_work.h"

#include <chrono>
#include <thread>

#include "app/error_description.h"
#include "audio/wav.h"
#include "files/atomic_write.h"

namespace murmela {
namespace {

constexpr int64_t sampleRate = 24000;
constexpr std::chrono::milliseconds handOverPause(5);

int64_t millisecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 start)
        .count();
}

}  // namespace

std::optional<UtteranceEnd> synthesiseUtterance(
    Voice& voice, std::string_view text, double speed, const CancelFlag& cancel,
    const std::function<void(SpokenChunk)>& chunkReady) {
    UtteranceEnd end;
    bool cancelled = false;
    try {
        voice.phonemizer().chunks(text, [&](std::vector<int64_t> ids) {
            if (end.chunks == 1) {
                // The first block is on its way to the main thread, which hands it to the
                // player; with few cores, synthesising the next chunk at once would keep the
                // main thread waiting for a processor. Its audio lasts far longer than this.
                std::this_thread::sleep_for(handOverPause);
            }
            if (cancel.isCancelled()) {
                cancelled = true;
                return false;
            }
            // Counted before synthesis: a text whose first chunk fails did give a chunk.
            const bool first = end.chunks++ == 0;
            const auto start = std::chrono::steady_clock::now();
            SynthesisResult result = voice.synthesize(ids, speed);
            chunkReady({first, millisecondsSince(start), ids.size(), std::move(result.samples)});
            return true;
        });
    } catch (...) {
        end.error = errorDescription(std::current_exception());
    }
    if (cancelled) {
        return std::nullopt;
    }
    return end;
}

std::optional<SaveOutcome> renderToWav(Voice& voice, std::string_view text, double speed,
                                       const std::filesystem::path& destination,
                                       const CancelFlag& abandon) {
    std::vector<float> samples;
    size_t chunks = 0;
    bool abandoned = false;
    try {
        voice.phonemizer().chunks(text, [&](std::vector<int64_t> ids) {
            if (abandon.isCancelled()) {
                abandoned = true;
                return false;
            }
            const SynthesisResult result = voice.synthesize(ids, speed);
            samples.insert(samples.end(), result.samples.begin(), result.samples.end());
            ++chunks;
            return true;
        });
        if (abandoned) {
            return std::nullopt;
        }
        if (chunks == 0) {
            return SaveOutcome{SaveOutcome::Kind::empty, {}};
        }
        writeFileAtomically(destination, encodeWav(samples, false, sampleRate));
        return SaveOutcome{SaveOutcome::Kind::written, {}};
    } catch (...) {
        return SaveOutcome{SaveOutcome::Kind::failed, errorDescription(std::current_exception())};
    }
}

}  // namespace murmela
