// The voices built from their teachers (tools/voice), as the program runs them: about ten seconds
// of everyday speech, from text to samples, chunk by chunk through the front end and the model
// runner. The target is well under a second for ten seconds of audio on one core; run it
// under `taskset -c 0` to hold it to one.

#include <benchmark/benchmark.h>

#include <cstddef>

#include "common/voice_format.h"
#include "engine/voice.h"

namespace {

using namespace murmela;

const char* const text =
    "Please close the window before you leave the house. The children played in the garden "
    "until it got dark. Can you tell me where the nearest train station is? We ran out of "
    "sugar, so I went to the market.";

void renderTenSeconds(benchmark::State& state, const char* directory) {
    Voice voice{VoiceChoice(directory)};  // warmed up as the program is at load
    const auto render = [&] {
        size_t samples = 0;
        voice.speak(text, 1.0, [&](SpokenChunk&& chunk) {
            samples += chunk.result.samples.size();
            benchmark::DoNotOptimize(chunk.result.samples.data());
            return true;
        });
        return samples;
    };
    size_t samples = render();
    for (auto _ : state) {
        samples = render();
    }
    const double seconds = static_cast<double>(samples) / static_cast<double>(sampleRate);
    state.counters["audioSeconds"] = seconds;
    state.counters["xRealTime"] = benchmark::Counter(
        seconds * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK_CAPTURE(renderTenSeconds, rms, MURMELA_VOICE_DIR)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MinTime(2.0);
BENCHMARK_CAPTURE(renderTenSeconds, slt, MURMELA_SECOND_VOICE_DIR)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MinTime(2.0);

}  // namespace

BENCHMARK_MAIN();
