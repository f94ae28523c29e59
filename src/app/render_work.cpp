#include "app/render_work.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "common/voice_error.h"

namespace murmela {
namespace {

// Lives in memory only, so a new process fails once again.
std::atomic<bool> failureInjected{false};

void injectFailure() {
    const char* failLoad = std::getenv("MURMELA_FAIL_LOAD");
    if (failLoad == nullptr) {
        return;
    }
    const std::string value = failLoad;
    const bool fail = value == "always" || (value == "once" && !failureInjected.load());
    if (fail) {
        failureInjected.store(true);
        throw VoiceError::failed("load failure injected (MURMELA_FAIL_LOAD=" + value + ")");
    }
}

constexpr std::chrono::milliseconds handOverPause(5);

int64_t millisecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 start)
        .count();
}

// Synthesises `text` with the voice that `voice` gives, handing over each chunk as soon as it is
// made; nothing once `cancel` is raised. An error, in opening the voice as in speaking, ends the
// utterance.
std::optional<UtteranceEnd> synthesiseUtterance(
    const std::function<Voice&()>& voice, std::string_view text, double speed,
    const CancelFlag& cancel, const std::function<void(PlayableChunk)>& chunkReady) {
    UtteranceEnd end;
    auto chunkStart = std::chrono::steady_clock::now();
    try {
        Voice& speaking = voice();
        speaking.resume();
        // A stop raises the flag before it interrupts, so one that came before the resumption
        // is seen here, and one after it interrupts the speaking.
        if (cancel.isCancelled()) {
            return std::nullopt;
        }
        speaking.speak(text, speed, [&](SpokenChunk&& chunk) {
            if (cancel.isCancelled()) {
                return false;
            }
            end.samples += static_cast<int64_t>(chunk.result.samples.size());
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
    // Stopped between chunks, or interrupted in the middle of one (which may look like an error).
    if (cancel.isCancelled()) {
        return std::nullopt;
    }
    return end;
}

}  // namespace

std::shared_ptr<Voice> loadVoice(const std::optional<std::filesystem::path>& directory) {
    injectFailure();
    return openWarmVoice(directory);
}

void speakInBackground(RenderQueue& queue, MainThreadInbox& inbox, std::function<Voice&()> voice,
                       std::string text, double speed, std::shared_ptr<const CancelFlag> cancel,
                       std::function<void(PlayableChunk)> chunkReady,
                       std::function<void(const UtteranceEnd&)> synthesised) {
    queue.post([&inbox, voice = std::move(voice), text = std::move(text), speed,
                cancel = std::move(cancel), chunkReady = std::move(chunkReady),
                synthesised = std::move(synthesised)] {
        const std::optional<UtteranceEnd> end =
            synthesiseUtterance(voice, text, speed, *cancel, [&](PlayableChunk chunk) {
                inbox.post([chunkReady, chunk = std::move(chunk)]() mutable {
                    chunkReady(std::move(chunk));
                });
            });
        if (end) {
            inbox.post([synthesised, end = *end] { synthesised(end); });
        }
    });
}

}  // namespace murmela
