// Peak memory of `murmela say` on long prose, streamed to a pipe (--raw) and to a WAV file
// (--output). Both write each chunk as soon as it is made, so the peak must not grow with the
// length of the text: 100,000 words must peak where 1,000 do (the text itself, some hundreds
// of kilobytes, is all that grows).
//   bin/bench_say_memory                      (the bundled voice; 100,000 words take a while)
//   bin/bench_say_memory --benchmark_filter=/1000/    (the short runs only)
// Counters: peak_rss_MiB (the program's maximum resident set), audio_s (seconds spoken).

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "common/voice_format.h"
#include "program_run.h"
#include "prose.h"

namespace {

namespace fs = std::filesystem;

// Runs `murmela say` with `arguments`, `text` on its standard input; with `countOutput` its
// standard output is counted, else sent to /dev/null.
murmela::bench::ProgramRun runSay(const std::vector<std::string>& arguments, const fs::path& text,
                                  bool countOutput) {
    std::vector<std::string> words = {MURMELA_PROGRAM, "say"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return murmela::bench::runProgram(std::move(words), text, countOutput);
}

void sayMemory(benchmark::State& state, bool toWavFile) {
    const auto words = static_cast<size_t>(state.range(0));
    const fs::path scratch =
        fs::temp_directory_path() / ("murmela-say-bench-" + std::to_string(::getpid()));
    fs::create_directories(scratch);
    const fs::path text = scratch / "prose.txt";
    std::ofstream(text) << murmela::bench::prose(words);
    const fs::path wav = scratch / "prose.wav";
    murmela::bench::ProgramRun run;
    long long sampleBytes = 0;  // header excluded
    for (auto _ : state) {
        if (toWavFile) {
            run = runSay({"--output", wav.string()}, text, false);
            sampleBytes = run.succeeded ? static_cast<long long>(fs::file_size(wav)) - 44 : 0;
        } else {
            run = runSay({"--raw"}, text, true);
            sampleBytes = run.outputBytes;
        }
    }
    if (!run.succeeded) {
        state.SkipWithError("murmela say failed");
    }
    state.counters["peak_rss_MiB"] = static_cast<double>(run.peakKilobytes) / 1024.0;
    state.counters["audio_s"] = static_cast<double>(sampleBytes) / 2.0 / murmela::sampleRate;
    fs::remove_all(scratch);
}

}  // namespace

BENCHMARK_CAPTURE(sayMemory, raw, false)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Iterations(1)
    ->Unit(benchmark::kSecond);
BENCHMARK_CAPTURE(sayMemory, wav_file, true)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Iterations(1)
    ->Unit(benchmark::kSecond);

int main(int argc, char** argv) {
    // The bundled voice as staged in the build tree, unless the caller names other resources.
    ::setenv("MURMELA_RESOURCES", MURMELA_STAGED_RESOURCES, 0);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
