// The program in parity mode on ten thousand short lines against a hundred: the run must
// finish, and its peak memory must not grow with the samples it writes, since each line's
// samples live only while the line is worked on. Reports both peaks and the samples written.

#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

extern char** environ;

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

struct Run {
    bool finished = false;
    long peakKilobytes = 0;
    double sampleBytes = 0;
};

// Runs the program on `count` lines in `scratch`, with the test voice as its resources.
Run parityRun(const fs::path& scratch, int count) {
    const std::vector<std::string> texts = {"Hi.", "Yes, go on.", "Well done.", "See you."};
    json lines = json::array();
    for (int i = 0; i < count; ++i) {
        lines.push_back({{"id", "line" + std::to_string(i)}, {"text", texts[i % texts.size()]}});
    }
    const fs::path out = scratch / "out";
    fs::remove_all(out);
    std::ofstream(scratch / "lines.json") << json{{"lines", lines}}.dump();

    std::vector<std::string> words = {MURMELA_PROGRAM, "-murmela.parity", out.string(),
                                      "-murmela.lines", (scratch / "lines.json").string()};
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    pid_t child = 0;
    Run run;
    if (posix_spawn(&child, MURMELA_PROGRAM, nullptr, nullptr, argv.data(), environ) != 0) {
        return run;
    }
    int status = 0;
    rusage usage{};
    if (::wait4(child, &status, 0, &usage) != child) {
        return run;
    }
    run.finished = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    run.peakKilobytes = usage.ru_maxrss;
    if (run.finished) {
        for (const json& line : json::parse(std::ifstream(out / "parity.json"))["lines"]) {
            run.sampleBytes += line["samples"].get<double>() * sizeof(float);
        }
    }
    return run;
}

void tenThousandLines(benchmark::State& state) {
    const fs::path scratch =
        fs::temp_directory_path() / ("murmela-parity-bench-" + std::to_string(::getpid()));
    fs::create_directories(scratch / "resources");
    fs::create_directory_symlink(MURMELA_BENCH_VOICE_DIR, scratch / "resources" / "Voice");
    ::setenv("MURMELA_RESOURCES", (scratch / "resources").c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", (scratch / "config").c_str(), 1);
    // Freed memory that the address sanitizer holds back would look like memory kept.
    ::setenv("ASAN_OPTIONS", "quarantine_size_mb=1", 1);
    Run small, huge;
    for (auto _ : state) {
        small = parityRun(scratch, 100);
        huge = parityRun(scratch, 10000);
    }
    fs::remove_all(scratch);
    if (!small.finished || !huge.finished) {
        state.SkipWithError("the parity run failed");
        return;
    }
    const double growth = static_cast<double>(huge.peakKilobytes - small.peakKilobytes) * 1024;
    state.counters["peakKiB100"] = static_cast<double>(small.peakKilobytes);
    state.counters["peakKiB10000"] = static_cast<double>(huge.peakKilobytes);
    state.counters["samplesKiB"] = huge.sampleBytes / 1024;
    // Keeping every line's samples would grow the peak by all of them.
    if (growth >= huge.sampleBytes / 2) {
        state.SkipWithError("the peak grows with the samples written");
    }
}
BENCHMARK(tenThousandLines)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
