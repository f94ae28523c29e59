// The program in parity mode on ten thousand short lines against a hundred: the run must
// finish, and its peak memory must not grow with the samples it writes, since each line's
// samples live only while the line is worked on. Reports both peaks and the samples written.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "program_run.h"

namespace {

namespace fs = std::filesystem;
using murmela::bench::ProgramRun;
using murmela::bench::runProgram;
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

    const ProgramRun program = runProgram({MURMELA_PROGRAM, "-murmela.parity", out.string(),
                                           "-murmela.lines", (scratch / "lines.json").string()},
                                          std::nullopt, false);
    Run run;
    run.finished = program.succeeded;
    run.peakKilobytes = program.peakKilobytes;
    if (run.finished) {
        // Held here: a loop over a member of the parsed temporary would outlive it.
        const json report = json::parse(std::ifstream(out / "parity.json"));
        for (const json& line : report["lines"]) {
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
