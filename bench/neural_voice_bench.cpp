// Downloaded voices (Kokoro and Piper) as the engine speaks them.
//
//   firstAudio/0, /1   With the pace voice (a Kokoro-shaped model that takes about 0.8 s to
//                      make each second of audio, as a large model would on a small laptop):
//                      from speak() to the first chunk, for one sentence alone (0) and for a
//                      5,000-word text that begins with it (1). Target: the long text within
//                      10 % of the sentence. Counter rtf: the model's measured real-time factor.
//   realTimePlayback   The pace voice speaking about 150 words to a player that plays in real
//                      time from the first chunk on. Each chunk is handed over whole, so a gap
//                      can only fall between chunks; counters: chunks, gaps (chunks that came
//                      after the one before had finished playing), gap_ms (their total).
//   outsideRuntime     Per chunk of the pace voice, the share of the time spent outside ONNX
//                      Runtime (phonemising, the vocabulary, building the inputs, copying the
//                      samples out): the speaking time against the same model runs alone.
//                      Target: outside_percent <= 5.
//   residentMemory/K   The resident memory a voice of kind K adds once opened and warmed up
//                      (0 three-stage test voice, 1 Kokoro stand-in, 2 Piper stand-in at
//                      22050 Hz); counter added_MiB.
//
//   bin/bench_neural_voice

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <string>
#include <vector>

#include "engine/model_session.h"
#include "engine/tensor_layout.h"
#include "engine/voice.h"
#include "prose.h"

namespace murmela {
namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

Voice& paceVoice() {
    static Voice* voice = [] {
        auto* opened = new Voice(VoiceChoice(MURMELA_BENCH_PACE_VOICE_DIR));
        opened->speak("Hi.", 1.0, [](SpokenChunk&&) { return false; });
        return opened;
    }();
    return *voice;
}

void firstAudio(benchmark::State& state) {
    const std::string& text =
        state.range(0) == 0 ? bench::firstSentenceOfLongProse() : bench::longProse();
    Voice& voice = paceVoice();
    double audioSeconds = 0, first = 0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        voice.speak(text, 1.0, [&](SpokenChunk&& chunk) {
            first = secondsSince(start);
            audioSeconds = static_cast<double>(chunk.result.samples.size()) / 24000;
            return false;
        });
        state.SetIterationTime(first);
    }
    state.counters["rtf"] = first / audioSeconds;
}
BENCHMARK(firstAudio)
    ->Arg(0)
    ->Arg(1)
    ->Iterations(3)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

void realTimePlayback(benchmark::State& state) {
    const std::string text = bench::prose(150);
    Voice& voice = paceVoice();
    size_t chunks = 0, gaps = 0;
    double gapSeconds = 0;
    for (auto _ : state) {
        chunks = gaps = 0;
        gapSeconds = 0;
        const Clock::time_point start = Clock::now();
        double playedUntil = 0;  // when the player runs out of what it was given, from start
        voice.speak(text, 1.0, [&](SpokenChunk&& chunk) {
            const double now = secondsSince(start);
            if (chunks > 0 && now > playedUntil) {
                ++gaps;
                gapSeconds += now - playedUntil;
            }
            playedUntil = std::max(playedUntil, now) +
                          static_cast<double>(chunk.result.samples.size()) / 24000;
            ++chunks;
            return true;
        });
    }
    state.counters["chunks"] = static_cast<double>(chunks);
    state.counters["gaps"] = static_cast<double>(gaps);
    state.counters["gap_ms"] = gapSeconds * 1000;
}
BENCHMARK(realTimePlayback)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

void outsideRuntime(benchmark::State& state) {
    const std::string text = bench::prose(120);
    Voice& voice = paceVoice();
    ModelSession alone(std::filesystem::path(MURMELA_BENCH_PACE_VOICE_DIR) / "kokoro-v1.0.onnx");
    const Ort::RunOptions options;
    double speaking = 0, runtime = 0;
    size_t chunks = 0;
    for (auto _ : state) {
        speaking = runtime = 0;
        chunks = 0;
        Clock::time_point start = Clock::now();
        voice.speak(text, 1.0, [&](SpokenChunk&& chunk) {
            speaking += secondsSince(start);
            ++chunks;
            // The same run right after, with nothing around it, so both see the same machine.
            std::vector<int64_t> tokens = {0};
            tokens.insert(tokens.end(), chunk.ids.begin(), chunk.ids.end());
            tokens.push_back(0);
            std::vector<float> style(256, 0.5f), speed = {1.0f};
            std::vector<std::pair<std::string, Ort::Value>> inputs;
            inputs.emplace_back("tokens",
                                tensorOver(tokens, {1, static_cast<int64_t>(tokens.size())}));
            inputs.emplace_back("style", tensorOver(style, {1, 256}));
            inputs.emplace_back("speed", tensorOver(speed, {1}));
            const Clock::time_point run = Clock::now();
            benchmark::DoNotOptimize(alone.run(std::move(inputs), options));
            runtime += secondsSince(run);
            start = Clock::now();
            return true;
        });
    }
    state.counters["chunks"] = static_cast<double>(chunks);
    state.counters["outside_ms_per_chunk"] =
        (speaking - runtime) * 1000 / static_cast<double>(chunks);
    state.counters["outside_percent"] = (speaking - runtime) / speaking * 100;
}
BENCHMARK(outsideRuntime)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

double residentMebibytes() {
    std::ifstream statm("/proc/self/statm");
    long size = 0, resident = 0;
    statm >> size >> resident;
    return static_cast<double>(resident) * static_cast<double>(::sysconf(_SC_PAGESIZE)) /
           (1024.0 * 1024.0);
}

void residentMemory(benchmark::State& state) {
    const std::filesystem::path neural = MURMELA_BENCH_NEURAL_VOICES_DIR;
    const VoiceChoice choices[] = {VoiceChoice(MURMELA_BENCH_TEST_VOICE_DIR),
                                   VoiceChoice(neural / "kokoro", "af_heart"),
                                   VoiceChoice(neural / "piper")};
    double added = 0;
    for (auto _ : state) {
        const double before = residentMebibytes();
        const std::unique_ptr<Voice> voice = openWarmVoice(choices[state.range(0)]);
        added = residentMebibytes() - before;
    }
    state.counters["added_MiB"] = added;
}
BENCHMARK(residentMemory)->DenseRange(0, 2)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace murmela

BENCHMARK_MAIN();
