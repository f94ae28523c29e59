// sd_murmela with the bundled voice next to espeak-ng's speech-dispatcher module, both driven
// over pipes exactly as the server drives them, warm (initialised and one message spoken):
//   first_audio     SPEAK of a short phrase to its first AUDIO event;
//   stop            STOP during a long text to the STOP event, with the time to the last AUDIO
//                   event after the STOP and the module's resident peak as counters;
//   stop_and_speak  STOP during a long text and at once SPEAK of a short phrase, to that
//                   phrase's first AUDIO event: what a screen reader's key press costs.
//   switch_voice    SET synthesis_voice to the other of two installed voices (the bundled one
//                   and the benchmark voice, whose models do realistic work) and SPEAK of the
//                   short phrase, to its first AUDIO event: the voice let go, the other opened
//                   and warmed up, and the phrase made; with the module's resident memory, one
//                   voice loaded, as a counter.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "speechd/module_client.h"

namespace {

using murmela::speechd::ModuleClient;
using murmela::speechd::Reply;
using Clock = std::chrono::steady_clock;

struct Subject {
    std::string program;
    std::vector<std::string> arguments;
    std::vector<std::string> environment;
};

const Subject murmela{
    MURMELA_SD_MODULE, {"murmela.conf"}, {"MURMELA_RESOURCES=" MURMELA_BENCH_RESOURCES}};
const Subject espeakNg{"/usr/lib/speech-dispatcher-modules/sd_espeak-ng",
                       {"/etc/speech-dispatcher/modules/espeak-ng.conf"},
                       {}};

const std::string shortPhrase = "SPEAK\n<speak>Hello, how are you?</speak>\n.\n";

std::string longText() {
    std::string text = "SPEAK\n<speak>";
    for (int i = 0; i < 30; ++i) {
        text += "This is one of many sentences in a long text that a screen reader might read.";
        text += "<mark name=\"__spd_" + std::to_string(i) + "\"/> ";
    }
    return text + "</speak>\n.\n";
}

double milliseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

// Reads replies and events until one with `code`; false when the module goes quiet first.
bool readUntil(ModuleClient& module, int code) {
    while (std::optional<Reply> reply = module.next()) {
        if (reply->code == code) {
            return true;
        }
    }
    return false;
}

// The module initialised as the server does it, with one message spoken; nothing when it can't
// be started.
std::unique_ptr<ModuleClient> started(const Subject& subject, benchmark::State& state) {
    if (!std::filesystem::exists(subject.program)) {
        state.SkipWithError((subject.program + " is not installed").c_str());
        return nullptr;
    }
    auto module =
        std::make_unique<ModuleClient>(subject.program, subject.arguments, subject.environment);
    module->send("INIT\n");
    std::optional<Reply> init = module->nextReply();
    if (!init || init->code != 299) {
        state.SkipWithError("the module did not initialise");
        return nullptr;
    }
    module->send("AUDIO\naudio_output_method=server\n.\n");
    readUntil(*module, 203);
    module->send(
        "SET\npitch=0\npitch_range=0\nrate=0\nvolume=100\npunctuation_mode=none\n"
        "spelling_mode=off\ncap_let_recogn=none\nvoice=male1\nlanguage=en\n"
        "synthesis_voice=NULL\n.\n");
    readUntil(*module, 203);
    readUntil(*module, 203);
    module->send(shortPhrase);
    readUntil(*module, 702);
    return module;
}

// Sends the short phrase, takes the time from `start` to its first audio as the iteration's and
// reads the rest of it. False, with the benchmark marked failed, when no audio comes.
bool phraseSpoken(ModuleClient& module, Clock::time_point start, benchmark::State& state) {
    module.send(shortPhrase);
    if (!readUntil(module, 705)) {
        state.SkipWithError("no audio");
        return false;
    }
    state.SetIterationTime(milliseconds(Clock::now() - start) / 1000);
    return readUntil(module, 702);
}

void firstAudio(benchmark::State& state, const Subject& subject) {
    std::unique_ptr<ModuleClient> module = started(subject, state);
    if (!module) {
        return;
    }
    for (auto _ : state) {
        if (!phraseSpoken(*module, Clock::now(), state)) {
            return;
        }
    }
}

// Starts the long text and waits for its first audio plus a little, so synthesis is under way.
bool speakingLongText(ModuleClient& module) {
    module.send(longText());
    if (!readUntil(module, 705)) {
        return false;
    }
    const Clock::time_point until = Clock::now() + std::chrono::milliseconds(50);
    while (Clock::now() < until) {
        module.next(std::chrono::milliseconds(5));
    }
    return true;
}

// Sends STOP and reads up to the message's closing event; `lastAudio` is when the last AUDIO
// event came, if one came. False when the module goes quiet first.
bool stopped(ModuleClient& module, Clock::time_point& lastAudio) {
    module.send("STOP\n");
    while (std::optional<Reply> event = module.next()) {
        if (event->code == 705) {
            lastAudio = Clock::now();
        } else if (event->code == 703 || event->code == 702) {
            return true;
        }
    }
    return false;
}

void stop(benchmark::State& state, const Subject& subject) {
    std::unique_ptr<ModuleClient> module = started(subject, state);
    if (!module) {
        return;
    }
    double lastAudio = 0;
    for (auto _ : state) {
        if (!speakingLongText(*module)) {
            state.SkipWithError("no audio");
            return;
        }
        const Clock::time_point start = Clock::now();
        Clock::time_point audio = start;
        if (!stopped(*module, audio)) {
            state.SkipWithError("no event after STOP");
            return;
        }
        state.SetIterationTime(milliseconds(Clock::now() - start) / 1000);
        lastAudio += milliseconds(audio - start);
    }
    state.counters["last_audio_after_stop_ms"] =
        benchmark::Counter(lastAudio, benchmark::Counter::kAvgIterations);
    // After a long text spoken and stopped over and over: the module's resident peak.
    if (std::optional<int64_t> peak = module->peakResidentKilobytes()) {
        state.counters["peak_resident_MiB"] = static_cast<double>(*peak) / 1024;
    }
}

void stopAndSpeak(benchmark::State& state, const Subject& subject) {
    std::unique_ptr<ModuleClient> module = started(subject, state);
    if (!module) {
        return;
    }
    for (auto _ : state) {
        if (!speakingLongText(*module)) {
            state.SkipWithError("no audio");
            return;
        }
        const Clock::time_point start = Clock::now();
        // The server sends the next message only once the module has confirmed the stop.
        Clock::time_point audio;
        if (!stopped(*module, audio) || !phraseSpoken(*module, start, state)) {
            return;
        }
    }
}

void switchVoice(benchmark::State& state) {
    // The benchmark voice installed as the user's, beside the bundled one.
    const std::filesystem::path data = std::filesystem::temp_directory_path() /
                                       ("murmela-bench-voices-" + std::to_string(::getpid()));
    std::filesystem::create_directories(data / "murmela" / "voices");
    std::filesystem::create_directory_symlink(MURMELA_BENCHMARK_VOICE_DIR,
                                              data / "murmela" / "voices" / "benchmark");
    Subject subject = murmela;
    subject.environment.push_back("XDG_DATA_HOME=" + data.string());
    std::unique_ptr<ModuleClient> module = started(subject, state);
    bool other = false;
    std::optional<int64_t> resident;
    for (auto _ : state) {
        if (!module) {
            break;
        }
        other = !other;
        const Clock::time_point start = Clock::now();
        module->send(std::string("SET\nsynthesis_voice=") + (other ? "benchmark" : "Murmela") +
                     "\n.\n");
        readUntil(*module, 203);
        readUntil(*module, 203);
        if (!phraseSpoken(*module, start, state)) {
            break;
        }
        resident = module->residentKilobytes();
    }
    if (resident) {
        state.counters["resident_MiB"] = static_cast<double>(*resident) / 1024;
    }
    module.reset();
    std::filesystem::remove_all(data);
}

// Each iteration speaks for real, so a fixed count keeps the run to a minute or two.
constexpr int iterations = 40;
BENCHMARK_CAPTURE(firstAudio, murmela, murmela)->UseManualTime()->Iterations(iterations);
BENCHMARK_CAPTURE(firstAudio, espeak_ng, espeakNg)->UseManualTime()->Iterations(iterations);
BENCHMARK_CAPTURE(stop, murmela, murmela)->UseManualTime()->Iterations(iterations);
BENCHMARK_CAPTURE(stop, espeak_ng, espeakNg)->UseManualTime()->Iterations(iterations);
BENCHMARK_CAPTURE(stopAndSpeak, murmela, murmela)->UseManualTime()->Iterations(iterations);
BENCHMARK_CAPTURE(stopAndSpeak, espeak_ng, espeakNg)->UseManualTime()->Iterations(iterations);
BENCHMARK(switchVoice)->UseManualTime()->Iterations(iterations);

}  // namespace

BENCHMARK_MAIN();
