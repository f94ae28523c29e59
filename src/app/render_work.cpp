#include "app/render_work.h"

#include <chrono>
#include <thread>

#include "app/error_description.h"
#include "audio/wav.h"
#include "common/voice_format.h"
#include "files/atomic_write.h"

namespace murmela {
namespace {

constexpr std::chrono::milliseconds handOverPause(5);

int64_t millisecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 start)
        .count();
}

}  // namespace

std::optional<UtteranceEnd> synthesiseUtterance(
    Voice& voice, std::string_view text, double speed, const CancelFlag& cancel,
    const std::function<void(PlayableChunk)>& chunkReady) {
    UtteranceEnd end;
    bool cancelled = false;
    auto chunkStart = std::chrono::steady_clock::now();
    try {
        voice.speak(text, speed, [&](SpokenChunk&& chunk) {
            if (cancel.isCancelled()) {
                cancelled = true;
                return false;
            }
            chunkReady({chunk.index == 0, millisecondsSince(chunkStart), chunk.ids.size(),
                        std::move(chunk.result.samples)});
            if (chunk.index == 0) {
                // The first block is on its way to the main thread, which hands it to the
                // player; with few cores, synthesising the next chunk at once would keep the
                // main thread waiting for a processor. Its audio lasts far longer than this.
                std::this_thread::sleep_for(handOverPause);
            }
            ++end.chunks;
            chunkStart = std::chrono::steady_clock::now();
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
        chunks = voice.speak(text, speed, [&](SpokenChunk&& chunk) {
            if (abandon.isCancelled()) {
                abandoned = true;
                return false;
            }
            samples.insert(samples.end(), chunk.result.samples.begin(), chunk.result.samples.end());
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
