// The voice built from the teacher (tools/voice), as the program runs it: about ten seconds of
// everyday speech, from text to samples, chunk by chunk through the front end and the model
// runner. The target is well under a second for ten seconds of audio on one core; run it
// under `taskset -c 0` to hold it to one.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "engine/voice_files.h"
#include "engine/voice_model.h"
#include "frontend/espeak.h"
#include "frontend/phonemizer.h"

namespace {

using namespace murmela;

const char* const text =
    "Please close the window before you leave the house. The children played in the garden "
    "until it got dark. Can you tell me where the nearest train station is? We ran out of "
    "sugar, so I went to the market.";

void renderTenSeconds(benchmark::State& state) {
    const std::filesystem::path directory = MURMELA_VOICE_DIR;
    const Phonemizer phonemizer(directory / "vocab.json", Espeak(directory));
    VoiceModel model{VoiceFiles{directory}};
    const std::vector<std::vector<int64_t>> chunks = phonemizer.chunks(text);
    // The runtime plans each input shape on its first run; the program warms up at load too.
    for (const std::vector<int64_t>& chunk : chunks) {
        model.synthesizeChunk(chunk, 1.0);
    }
    size_t samples = 0;
    for (auto _ : state) {
        samples = 0;
        for (const std::vector<int64_t>& chunk : chunks) {
            SynthesisResult result = model.synthesizeChunk(chunk, 1.0);
            samples += result.samples.size();
            benchmark::DoNotOptimize(result.samples.data());
        }
    }
    const double seconds = static_cast<double>(samples) / 24000.0;
    state.counters["audioSeconds"] = seconds;
    state.counters["xRealTime"] = benchmark::Counter(
        seconds * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(renderTenSeconds)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

}  // namespace

BENCHMARK_MAIN();
