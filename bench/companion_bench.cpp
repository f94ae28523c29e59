// The assistant companion driven over its pipes as an assistant's MCP client drives it, warm
// (initialised, one phrase spoken):
//   speak           `speak` of a short phrase, to its answer;
//   stop_and_speak  `stop` during a long speech and at once `speak` of a short phrase, to the
//                   answer of that speak: what it costs to cut the assistant short.
// Where the first sound is observed: the answer to `speak` comes once every chunk of its text
// has been made, and the companion sends it only after handing the last chunk to the player
// (both pass through the main thread in order). The phrase is one chunk, so the answer follows
// its first samples reaching the player. The player is the simulated one (MURMELA_AUDIO=none):
// a sound device adds its own latency, the same with or without a stop, which is not the
// companion's to spend.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "speechd/module_client.h"

namespace {

using murmela::speechd::ModuleClient;
using nlohmann::json;
using Clock = std::chrono::steady_clock;

const std::string shortPhrase = "Hello, how are you?";

std::string longText() {
    std::string text;
    for (int i = 0; i < 30; ++i) {
        text +=
            "This is one of the many long sentences that an assistant might read aloud to "
            "someone who asked it for a summary of the news. ";
    }
    return text;
}

double milliseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

bool sendMessage(ModuleClient& companion, const json& message) {
    return companion.send(message.dump() + "\n");
}

bool callTool(ModuleClient& companion, int id, const std::string& name, json arguments) {
    return sendMessage(companion, {{"jsonrpc", "2.0"},
                                   {"id", id},
                                   {"method", "tools/call"},
                                   {"params", {{"name", name}, {"arguments", arguments}}}});
}

// Reads messages until the answer to `id`; nothing when the companion goes quiet first.
std::optional<json> answerTo(ModuleClient& companion, int id) {
    while (std::optional<std::string> line = companion.nextLine(std::chrono::seconds(60))) {
        json message = json::parse(*line, nullptr, false);
        if (message.is_object() && message.value("id", json()) == id) {
            return message;
        }
    }
    return std::nullopt;
}

bool spoken(const std::optional<json>& answer) {
    return answer && answer->contains("result") && !(*answer)["result"].value("isError", true);
}

// The companion initialised and warm (one phrase spoken), on the simulated player; nothing when
// it does not come up.
std::unique_ptr<ModuleClient> started(int& id, benchmark::State& state) {
    auto companion = std::make_unique<ModuleClient>(
        MURMELA_COMPANION, std::vector<std::string>{"mcp"},
        std::vector<std::string>{"MURMELA_RESOURCES=" MURMELA_BENCH_RESOURCES,
                                 "MURMELA_AUDIO=none"});
    sendMessage(*companion, {{"jsonrpc", "2.0"},
                             {"id", ++id},
                             {"method", "initialize"},
                             {"params",
                              {{"protocolVersion", "2025-11-25"},
                               {"capabilities", json::object()},
                               {"clientInfo", {{"name", "bench"}, {"version", "1"}}}}}});
    if (!answerTo(*companion, id)) {
        state.SkipWithError("the companion did not initialise");
        return nullptr;
    }
    sendMessage(*companion, {{"jsonrpc", "2.0"}, {"method", "notifications/initialized"}});
    callTool(*companion, ++id, "speak", {{"text", shortPhrase}});
    if (!spoken(answerTo(*companion, id))) {
        state.SkipWithError("the companion did not speak");
        return nullptr;
    }
    return companion;
}

// Speaks the short phrase (after `before`, if any) and times it from just before `before` to
// the phrase's first samples reaching the player; false, with the run marked failed, when no
// answer comes.
bool timedPhrase(ModuleClient& companion, int& id, std::vector<double>& times,
                 benchmark::State& state, const std::function<void()>& before) {
    const Clock::time_point start = Clock::now();
    if (before) {
        before();
    }
    callTool(companion, ++id, "speak", {{"text", shortPhrase}});
    if (!spoken(answerTo(companion, id))) {
        state.SkipWithError("no answer to speak");
        return false;
    }
    times.push_back(milliseconds(Clock::now() - start));
    state.SetIterationTime(times.back() / 1000);
    return true;
}

// The median, which a busy machine's stray slow iteration does not move as it moves the mean.
void reportMedian(std::vector<double> times, benchmark::State& state) {
    std::nth_element(times.begin(), times.begin() + times.size() / 2, times.end());
    state.counters["median_ms"] = times.empty() ? 0 : times[times.size() / 2];
}

// The phrase alone, with nothing to stop: what the stop adds is the difference.
void speak(benchmark::State& state) {
    int id = 0;
    std::unique_ptr<ModuleClient> companion = started(id, state);
    std::vector<double> times;
    for (auto _ : state) {
        if (!companion || !timedPhrase(*companion, id, times, state, nullptr)) {
            return;
        }
    }
    reportMedian(std::move(times), state);
}

void stopAndSpeak(benchmark::State& state) {
    int id = 0;
    std::unique_ptr<ModuleClient> companion = started(id, state);
    const std::string text = longText();
    std::vector<double> times;
    for (auto _ : state) {
        if (!companion) {
            return;
        }
        // The long speech's answer comes only when it is stopped; meanwhile its chunks are
        // being made.
        callTool(*companion, ++id, "speak", {{"text", text}});
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        if (!timedPhrase(*companion, id, times, state,
                         [&] { callTool(*companion, ++id, "stop", json::object()); })) {
            return;
        }
    }
    reportMedian(std::move(times), state);
}

// Each iteration speaks for real, so a fixed count keeps the run to a minute or two.
BENCHMARK(speak)->UseManualTime()->Iterations(40);
BENCHMARK(stopAndSpeak)->Name("stop_and_speak")->UseManualTime()->Iterations(40);

}  // namespace

BENCHMARK_MAIN();
