// Peak memory of `murmela say` on long prose, streamed to a pipe (--raw) and to a WAV file
// (--output). Both write each chunk as soon as it is made, so the peak must not grow with the
// length of the text: 100,000 words must peak where 1,000 do (the text itself, some hundreds
// of kilobytes, is all that grows).
//   bin/bench_say_memory                      (the bundled voice; 100,000 words take a while)
//   bin/bench_say_memory --benchmark_filter=/1000/    (the short runs only)
// Counters: peak_rss_MiB (the program's maximum resident set), audio_s (seconds spoken).

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "prose.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;

struct Run {
    long peakKilobytes = 0;
    long long bytes = 0;  // of samples, header excluded
};

// Runs `murmela say` with `arguments`, `text` on its standard input; with `countOutput` its
// standard output is a pipe read here, else /dev/null.
Run runSay(const std::vector<std::string>& arguments, const fs::path& text, bool countOutput) {
    std::vector<std::string> words = {MURMELA_PROGRAM, "say"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    int pipeEnds[2] = {-1, -1};
    if (countOutput && ::pipe(pipeEnds) != 0) {
        std::perror("pipe");
        std::exit(1);
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, text.c_str(), O_RDONLY, 0);
    if (countOutput) {
        posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], 1);
        posix_spawn_file_actions_addclose(&actions, pipeEnds[0]);
    } else {
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    }
    pid_t pid = -1;
    if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
        std::perror("posix_spawn");
        std::exit(1);
    }
    posix_spawn_file_actions_destroy(&actions);
    Run run;
    if (countOutput) {
        ::close(pipeEnds[1]);
        std::vector<char> buffer(1 << 16);
        for (ssize_t count; (count = ::read(pipeEnds[0], buffer.data(), buffer.size())) != 0;) {
            if (count > 0) {
                run.bytes += count;
            }
        }
        ::close(pipeEnds[0]);
    }
    int status = 0;
    rusage usage{};
    ::wait4(pid, &status, 0, &usage);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "murmela say failed (status %d)\n", status);
        std::exit(1);
    }
    run.peakKilobytes = usage.ru_maxrss;
    return run;
}

void sayMemory(benchmark::State& state, bool toWavFile) {
    const auto words = static_cast<size_t>(state.range(0));
    const fs::path scratch =
        fs::temp_directory_path() / ("murmela-say-bench-" + std::to_string(::getpid()));
    fs::create_directories(scratch);
    const fs::path text = scratch / "prose.txt";
    {
        const std::string prose = murmela::bench::prose(words);
        std::FILE* file = std::fopen(text.c_str(), "w");
        std::fwrite(prose.data(), 1, prose.size(), file);
        std::fclose(file);
    }
    const fs::path wav = scratch / "prose.wav";
    Run run;
    for (auto _ : state) {
        if (toWavFile) {
            run = runSay({"--output", wav.string()}, text, false);
            run.bytes = static_cast<long long>(fs::file_size(wav)) - 44;
        } else {
            run = runSay({"--raw"}, text, true);
        }
    }
    state.counters["peak_rss_MiB"] = static_cast<double>(run.peakKilobytes) / 1024.0;
    state.counters["audio_s"] = static_cast<double>(run.bytes) / 2.0 / 24000.0;
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
