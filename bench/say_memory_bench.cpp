// Peak memory of `murmela say` on long prose, streamed to a pipe (--raw) and to a WAV file
// (--output). Both write each chunk as soon as it is made, so the peak must not grow with the
// length of the text: 100,000 words must peak where 1,000 do (the text itself, some hundreds
// of kilobytes, is all that grows). Standard input is read as it arrives, so text written into
// a pipe, prose or one line that never ends a sentence, must not grow the peak at all.
//   bin/bench_say_memory                      (the bundled voice; 100,000 words take a while)
//   bin/bench_say_memory --benchmark_filter=/1000/    (the short runs only)
// Counters: peak_rss_MiB (the program's maximum resident set), audio_s (seconds spoken).

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "common/voice_format.h"
#include "files/files.h"
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

// Writes `words` words to `pipe` a few kilobytes at a time, as a program that logs would: the
// same thousand words of prose again and again, or, `withoutEnds`, one line of words that never
// ends a sentence. Stops early when the reader goes.
void feedWords(int pipe, size_t words, bool withoutEnds) {
    constexpr size_t wordsPerBlock = 1000;
    std::string block;
    if (withoutEnds) {
        for (size_t index = 0; index < wordsPerBlock; ++index) {
            block += "word ";
        }
    } else {
        block = murmela::bench::prose(wordsPerBlock) + "\n";
    }
    constexpr size_t piece = 4096;
    for (size_t written = 0; written < words; written += wordsPerBlock) {
        for (size_t start = 0; start < block.size(); start += piece) {
            if (murmela::writeAll(pipe, std::string_view(block).substr(start, piece)) != 0) {
                return;
            }
        }
    }
}

// `murmela say --raw` reading a stream of `state.range(0)` words through a pipe as it arrives.
void sayStreamMemory(benchmark::State& state, bool withoutEnds) {
    const auto words = static_cast<size_t>(state.range(0));
    murmela::bench::ProgramRun run;
    for (auto _ : state) {
        run = murmela::bench::runProgramFedBy(
            {MURMELA_PROGRAM, "say", "--raw"},
            [&](int pipe) { feedWords(pipe, words, withoutEnds); }, true);
    }
    if (!run.succeeded) {
        state.SkipWithError("murmela say failed");
    }
    state.counters["peak_rss_MiB"] = static_cast<double>(run.peakKilobytes) / 1024.0;
    state.counters["audio_s"] = static_cast<double>(run.outputBytes) / 2.0 / murmela::sampleRate;
}

// Each case runs once per length in words: a whole run of the program is the measurement.
void overTextLengths(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(1000)->Arg(10000)->Arg(100000)->Iterations(1)->Unit(benchmark::kSecond);
}

}  // namespace

BENCHMARK_CAPTURE(sayStreamMemory, prose_through_a_pipe, false)->Apply(overTextLengths);
BENCHMARK_CAPTURE(sayStreamMemory, one_endless_line, true)->Apply(overTextLengths);
BENCHMARK_CAPTURE(sayMemory, raw, false)->Apply(overTextLengths);
BENCHMARK_CAPTURE(sayMemory, wav_file, true)->Apply(overTextLengths);

int main(int argc, char** argv) {
    // The bundled voice as staged in the build tree, unless the caller names other resources.
    ::setenv("MURMELA_RESOURCES", MURMELA_STAGED_RESOURCES, 0);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
