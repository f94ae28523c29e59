// A parity run of a 2,000-word lines file (one line per sentence): the voice load and the
// whole run as the program does it, then the same lines with their time split into
// phonemisation, the model runs (encoder, decoder, vocoder and the conversions around them)
// and the inverse STFT.
//   bin/bench_parity                 the build's test voice
//   bin/bench_parity --benchmark_filter=/1   the benchmark voice, whose models do real work
//
// Times are wall-clock: the runtime uses more than one thread.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "app/parity.h"
#include "engine/durations.h"
#include "engine/istft.h"
#include "engine/three_stage_voice.h"
#include "engine/voice.h"
#include "engine/voice_model.h"
#include "prose.h"

namespace murmela {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using Clock = std::chrono::steady_clock;

constexpr size_t words = 2000;

fs::path voiceDirectory(int64_t which) {
    return which == 0 ? MURMELA_BENCH_TEST_VOICE_DIR : MURMELA_BENCH_REALISTIC_VOICE_DIR;
}

// The prose cut after each sentence's closing mark.
std::vector<std::string> sentences() {
    const std::string text = bench::prose(words);
    std::vector<std::string> result;
    std::string current;
    for (size_t i = 0; i < text.size(); ++i) {
        current += text[i];
        const bool closing = text[i] == '.' || text[i] == '?' || text[i] == '!';
        if (closing && (i + 1 == text.size() || text[i + 1] == ' ')) {
            result.push_back(current);
            current.clear();
            ++i;  // the space after it
        }
    }
    if (!current.empty()) {
        result.push_back(current);
    }
    return result;
}

// A scratch directory with the lines file, removed afterwards.
struct Scratch {
    Scratch() {
        fs::create_directories(root);
        json lines = json::array();
        const std::vector<std::string> texts = sentences();
        for (size_t i = 0; i < texts.size(); ++i) {
            lines.push_back({{"id", "line" + std::to_string(i)}, {"text", texts[i]}});
        }
        std::ofstream(linesFile) << json{{"lines", lines}}.dump();
        count = texts.size();
    }
    ~Scratch() {
        std::error_code ignored;
        fs::remove_all(root, ignored);
    }
    fs::path root =
        fs::temp_directory_path() / ("murmela-bench-parity-" + std::to_string(::getpid()));
    fs::path linesFile = root / "lines.json";
    fs::path out = root / "out";
    size_t count = 0;
};

double millisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// The program's own run: load, every line, every file.
void parityRun(benchmark::State& state) {
    Scratch scratch;
    double loadMs = 0, renderMs = 0, lineRenderMs = 0, audioMs = 0;
    for (auto _ : state) {
        Clock::time_point start = Clock::now();
        Voice voice(voiceDirectory(state.range(0)));
        loadMs = millisecondsSince(start);
        start = Clock::now();
        writeParityReport(voice, scratch.linesFile, scratch.out, static_cast<int64_t>(loadMs),
                          json::object());
        renderMs = millisecondsSince(start);
    }
    std::ifstream reportFile(scratch.out / "parity.json");
    const json report = json::parse(reportFile);
    for (const json& line : report["lines"]) {
        lineRenderMs += line["renderMs"].get<double>();
        audioMs += line["audioMs"].get<double>();
    }
    state.counters["lines"] = static_cast<double>(scratch.count);
    state.counters["loadMs"] = loadMs;
    state.counters["renderMs"] = renderMs;
    state.counters["linesRenderMs"] = lineRenderMs;  // the report's own sum, files excluded
    state.counters["audioS"] = audioMs / 1000.0;
    state.counters["xRealTime"] = audioMs / renderMs;
}
BENCHMARK(parityRun)->Arg(0)->Arg(1)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

// The same lines, each phase timed on its own: what a line's render time is made of.
void renderPhases(benchmark::State& state) {
    const std::vector<std::string> texts = sentences();
    ThreeStageVoice voice(voiceDirectory(state.range(0)));
    const ISTFT istft(1024, 300);
    double phonemeMs = 0, modelMs = 0, istftMs = 0;
    for (auto _ : state) {
        phonemeMs = modelMs = istftMs = 0;
        for (const std::string& text : texts) {
            Clock::time_point start = Clock::now();
            std::vector<std::vector<int64_t>> chunks;
            voice.phonemizer().chunks(text, [&chunks](std::vector<int64_t> chunk) {
                chunks.push_back(std::move(chunk));
                return true;
            });
            phonemeMs += millisecondsSince(start);
            for (const std::vector<int64_t>& chunk : chunks) {
                std::vector<int64_t> tokens = {0};
                tokens.insert(tokens.end(), chunk.begin(), chunk.end());
                tokens.push_back(0);
                start = Clock::now();
                VoiceModel::Encoded encoded = voice.model().encode(tokens);
                const std::vector<int64_t> counts = frameCounts(encoded.logDurations, 1.0);
                VoiceModel::Spectrogram spectrogram;
                try {
                    spectrogram = voice.model().decode(encoded.features, counts);
                } catch (const TooLong&) {
                    state.SkipWithError("a sentence needs more frames than the decoder holds");
                    return;
                }
                modelMs += millisecondsSince(start);
                start = Clock::now();
                std::vector<float> samples =
                    istft.run(spectrogram.mag, spectrogram.phase, spectrogram.frames);
                istftMs += millisecondsSince(start);
                benchmark::DoNotOptimize(samples.data());
            }
        }
    }
    const double total = phonemeMs + modelMs + istftMs;
    state.counters["phonemeMs"] = phonemeMs;
    state.counters["modelMs"] = modelMs;
    state.counters["istftMs"] = istftMs;
    state.counters["phonemePct"] = 100 * phonemeMs / total;
    state.counters["modelPct"] = 100 * modelMs / total;
    state.counters["istftPct"] = 100 * istftMs / total;
}
BENCHMARK(renderPhases)->Arg(0)->Arg(1)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace
}  // namespace murmela

BENCHMARK_MAIN();
