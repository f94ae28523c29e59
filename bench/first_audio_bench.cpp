// Time to first audio: from speak() to the first block handed to the player (the model's
// "first audio after" line), for one sentence alone and for a 5,000-word text that begins with
// that same sentence, so the difference is what the rest of the text costs before speech starts.
//
// Target: the long text's first audio within 10 % of the short one's.
//   bin/bench_first_audio   (the build's test voice, and the benchmark voice with realistic
//   models; audio is simulated, MURMELA_AUDIO=none)

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <QCoreApplication>
#include <QTimer>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "app/speech.h"
#include "logging/log.h"
#include "model_bench_main.h"
#include "prose.h"

namespace murmela {
namespace {

using Clock = std::chrono::steady_clock;

// Sleeps in the event loop (rather than polling it, which would compete with the render thread
// for the processor) until `done` holds; false after two minutes.
bool runEventsUntil(const std::function<bool()>& done) {
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(120);
    QTimer tick;  // wakes the loop now and then to look at the deadline
    tick.start(100);
    while (!done()) {
        if (Clock::now() >= deadline) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

// When the model last handed its first block to the player.
class FirstAudio {
public:
    FirstAudio()
        : capture_([this](log::Level, const std::string& line) {
              if (line.starts_with("first audio after ")) {
                  std::lock_guard lock(mutex_);
                  at_ = Clock::now();
              }
          }) {}

    std::optional<Clock::time_point> take() {
        std::lock_guard lock(mutex_);
        return std::exchange(at_, std::nullopt);
    }

private:
    std::mutex mutex_;
    std::optional<Clock::time_point> at_;
    log::Capture capture_;
};

void firstAudio(benchmark::State& state, const std::filesystem::path& voice,
                const std::string& text) {
    Speech speech(SettingsStore::forModel({}), voice);
    speech.load();
    if (!runEventsUntil([&] { return speech.phase() != Phase::loading; }) ||
        speech.phase() != Phase::ready) {
        state.SkipWithError("the voice did not load");
        return;
    }
    const std::filesystem::path nowhere = std::filesystem::temp_directory_path() / "unwritten.wav";
    FirstAudio first;
    for (auto _ : state) {
        speech.setText(QString::fromStdString(text));
        const Clock::time_point start = Clock::now();
        speech.speak();
        std::optional<Clock::time_point> at;
        if (!runEventsUntil([&] { return (at = first.take()).has_value(); })) {
            state.SkipWithError("no first audio");
            return;
        }
        state.SetIterationTime(std::chrono::duration<double>(*at - start).count());

        // Stop, and wait until the render thread has let the stopped utterance go: a save of a
        // text without chunks queues behind it and ends at once.
        speech.stop();
        speech.setText("**");
        speech.save(nowhere);
        runEventsUntil([&] { return speech.phase() == Phase::ready; });
        // The runtime's threads spin a while after a synthesis; a user does not speak again
        // within this pause, and both texts start from the same quiet state.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    state.counters["bytes"] = static_cast<double>(text.size());
}

const std::filesystem::path testVoice = MURMELA_BENCH_VOICE_DIR;
const std::filesystem::path benchmarkVoice = MURMELA_BENCHMARK_VOICE_DIR;

BENCHMARK_CAPTURE(firstAudio, testVoiceOneSentence, testVoice, bench::firstSentenceOfLongProse())
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->MinTime(2.0);
BENCHMARK_CAPTURE(firstAudio, testVoice5000Words, testVoice, bench::longProse())
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->MinTime(2.0);
BENCHMARK_CAPTURE(firstAudio, benchmarkVoiceOneSentence, benchmarkVoice,
                  bench::firstSentenceOfLongProse())
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->MinTime(2.0);
BENCHMARK_CAPTURE(firstAudio, benchmarkVoice5000Words, benchmarkVoice, bench::longProse())
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->MinTime(2.0);

}  // namespace
}  // namespace murmela

int main(int argc, char** argv) {
    return murmela::bench::runModelBenchmarks(argc, argv, [] {
        std::printf("one sentence: \"%s\"; long text: %zu bytes\n",
                    murmela::bench::firstSentenceOfLongProse().c_str(),
                    murmela::bench::longProse().size());
    });
}
