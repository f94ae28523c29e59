// sd_murmela with the bundled voice through 2,000 rounds of what speech-dispatcher does to it:
// SPEAK (often SSML with index marks), SET of rate, volume and voice at random, STOP and PAUSE
// at a random moment. Every event is checked as it comes (exactly one closing event a message,
// nothing of a message after it, marks in order); after round 100 and at the end the module's
// resident memory and open descriptors are read. The run fails when an event is out of place,
// memory grows by 5 MB or more, or a descriptor is leaked.
//   bin/bench_speechd_soak                        (prints the seed it drew)
//   MURMELA_SOAK_SEED=<seed> bin/bench_speechd_soak   (sends the same commands again)
// Counters: rounds, seed, rss_round_100_MiB, rss_end_MiB, rss_growth_MiB, fds_round_100,
// fds_end, events, audio_events, marks, messages, ends, stops, pauses.

#include <benchmark/benchmark.h>

#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "speechd/module_client.h"
#include "speechd/module_soak.h"

namespace {

using murmela::speechd::ModuleClient;
using murmela::speechd::SoakPlan;
using murmela::speechd::SoakReport;

double mebibytes(int64_t kilobytes) {
    return static_cast<double>(kilobytes) / 1024;
}

void soak(benchmark::State& state) {
    SoakPlan plan{.rounds = static_cast<int>(state.range(0)), .settledRound = 100, .seed = 0};
    try {
        plan.seed = murmela::speechd::soakSeed();
    } catch (const std::invalid_argument& error) {
        state.SkipWithError(error.what());
        return;
    }
    std::cerr << "soak seed " << plan.seed << "\n";
    SoakReport report;
    for (auto _ : state) {
        ModuleClient module(MURMELA_SD_MODULE, {"murmela.conf"},
                            {"MURMELA_RESOURCES=" MURMELA_BENCH_RESOURCES});
        if (!module.started()) {
            state.SkipWithError("sd_murmela did not start");
            return;
        }
        report = murmela::speechd::runSoak(module, plan);
    }

    state.counters["rounds"] = report.rounds;
    // A 64-bit seed does not fit a counter's double exactly: the log line above has it whole.
    state.counters["seed"] = static_cast<double>(plan.seed);
    if (report.residentSettledKilobytes && report.residentEndKilobytes) {
        state.counters["rss_round_100_MiB"] = mebibytes(*report.residentSettledKilobytes);
        state.counters["rss_end_MiB"] = mebibytes(*report.residentEndKilobytes);
        state.counters["rss_growth_MiB"] = mebibytes(*report.residentGrowthKilobytes());
    }
    if (report.descriptorsSettled && report.descriptorsEnd) {
        state.counters["fds_round_100"] = *report.descriptorsSettled;
        state.counters["fds_end"] = *report.descriptorsEnd;
    }
    state.counters["events"] = static_cast<double>(report.counts.events);
    state.counters["audio_events"] = static_cast<double>(report.counts.audio);
    state.counters["marks"] = static_cast<double>(report.counts.marks);
    state.counters["messages"] = static_cast<double>(report.counts.messages);
    state.counters["ends"] = static_cast<double>(report.counts.ends);
    state.counters["stops"] = static_cast<double>(report.counts.stops);
    state.counters["pauses"] = static_cast<double>(report.counts.pauses);

    std::cerr << "soak: " << report.summary() << "\n";
    const std::vector<std::string> problems = report.problems();
    for (const std::string& problem : problems) {
        std::cerr << "soak: " << problem << "\n";
    }
    if (!problems.empty()) {
        state.SkipWithError(
            ("seed " + std::to_string(plan.seed) + ": " + problems.front()).c_str());
    }
}

BENCHMARK(soak)->Arg(2000)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
