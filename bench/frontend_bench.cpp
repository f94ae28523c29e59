// The whole text front end against espeak-ng's phonemisation alone, on the same prose.
//
// Targets: chunks(for:) costs at most 1.15 times the espeak-ng loop over the same text, and
// ten times the text takes at most eleven times as long.
//   bin/bench_frontend --benchmark_filter=... (the voice is the build's test voice)

#include <benchmark/benchmark.h>
#include <espeak-ng/speak_lib.h>

#include <string>

#include "frontend/espeak.h"
#include "frontend/phonemizer.h"
#include "prose.h"

namespace murmela {
namespace {

constexpr size_t wordsPerUnit = 10'000;
// espeak-ng's IPA with "^" ties, as the front end asks for it.
constexpr int phonemeMode = espeakPHONEMES_IPA | espeakPHONEMES_TIE | ('^' << 8);

const std::filesystem::path voice = MURMELA_BENCH_VOICE_DIR;

const std::string& text(size_t units) {
    static const std::string one = bench::prose(wordsPerUnit);
    static const std::string ten = bench::prose(10 * wordsPerUnit);
    return units == 1 ? one : ten;
}

void chunks(benchmark::State& state) {
    const std::string& input = text(static_cast<size_t>(state.range(0)));
    const Phonemizer phonemizer(voice / "vocab.json", Espeak(voice));
    size_t ids = 0;
    for (auto _ : state) {
        ids = 0;
        phonemizer.chunks(input, [&ids](std::vector<int64_t> chunk) {
            ids += chunk.size();
            return true;
        });
        benchmark::DoNotOptimize(ids);
    }
    state.counters["ids"] = static_cast<double>(ids);
    state.counters["words"] = static_cast<double>(state.range(0) * wordsPerUnit);
}

// espeak-ng alone: its clause loop over the raw text, the least any front end must spend.
void espeakAlone(benchmark::State& state) {
    const std::string& input = text(static_cast<size_t>(state.range(0)));
    const Espeak espeak(voice);  // sets the library up for the same voice and data
    size_t bytes = 0;
    for (auto _ : state) {
        bytes = 0;
        const void* cursor = input.c_str();
        while (cursor != nullptr) {
            const char* clause = espeak_TextToPhonemes(&cursor, espeakCHARS_UTF8, phonemeMode);
            if (clause == nullptr) {
                break;
            }
            bytes += std::char_traits<char>::length(clause);
        }
        benchmark::DoNotOptimize(bytes);
    }
    state.counters["ipaBytes"] = static_cast<double>(bytes);
}

BENCHMARK(espeakAlone)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);
BENCHMARK(chunks)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace murmela

BENCHMARK_MAIN();
