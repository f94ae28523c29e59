// Peak memory of the window's Save on long prose: from save() on the application model to its
// notice, how far the process's peak resident set rises above where it stood with the voice
// loaded and the text set. A save written as it is made rises by about one chunk whatever the
// length; one that gathers the whole text's samples first rises with the text.
//   bin/bench_save_memory    (the build's test voice; audio is never played)
// Counters: peak_rise_MiB (the rise of the peak resident set), audio_s (seconds saved).

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <QCoreApplication>
#include <QTimer>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "app/speech.h"
#include "common/voice_format.h"
#include "model_bench_main.h"
#include "prose.h"

namespace murmela {
namespace {

namespace fs = std::filesystem;

// The process's peak resident set so far, in kibibytes (VmHWM), or -1.
long long peakKilobytes() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.starts_with("VmHWM:")) {
            return std::stoll(line.substr(6));
        }
    }
    return -1;
}

// Lowers the peak resident set to the current one, so the next peak is the operation's own.
bool resetPeak() {
    std::ofstream clear("/proc/self/clear_refs");
    clear << "5";
    return static_cast<bool>(clear.flush());
}

bool waitForReady(Speech& speech) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(30);
    QTimer tick;  // wakes the loop now and then to look at the deadline
    tick.start(200);
    while (speech.phase() != Phase::ready) {
        if (std::chrono::steady_clock::now() >= deadline || speech.phase() == Phase::failed) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

void saveMemory(benchmark::State& state) {
    const auto words = static_cast<size_t>(state.range(0));
    Speech speech(SettingsStore::forModel({}), fs::path(MURMELA_BENCH_VOICE_DIR));
    speech.load();
    if (!waitForReady(speech)) {
        state.SkipWithError("the voice did not load");
        return;
    }
    speech.setText(QString::fromStdString(bench::prose(words)));
    const fs::path wav = fs::temp_directory_path() / "murmela-save-memory-bench.wav";
    long long rise = 0;
    for (auto _ : state) {
        if (!resetPeak()) {
            state.SkipWithError("the peak resident set cannot be reset here");
            return;
        }
        const long long before = peakKilobytes();
        speech.save(wav);
        if (!waitForReady(speech) || !fs::exists(wav)) {
            state.SkipWithError("the save failed");
            return;
        }
        rise = peakKilobytes() - before;
    }
    state.counters["peak_rise_MiB"] = static_cast<double>(rise) / 1024.0;
    state.counters["audio_s"] =
        static_cast<double>(fs::file_size(wav) - 44) / 2.0 / static_cast<double>(sampleRate);
    fs::remove(wav);
}

BENCHMARK(saveMemory)->Arg(1000)->Arg(10000)->Arg(100000)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace
}  // namespace murmela

int main(int argc, char** argv) {
    return murmela::bench::runModelBenchmarks(argc, argv);
}
