#include "speechd/module_soak.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <random>
#include <stdexcept>
#include <string_view>
#include <thread>

namespace murmela::speechd {
namespace {

// Plain sentences, each safe both as text and inside SSML.
constexpr std::array sentences = {
    "Hello there.",
    "The quick brown fox jumps over the lazy dog.",
    "Is it raining in Paris today?",
    "Press the green button twice, then wait.",
    "Meet me at 5 o'clock, on the 3rd of May.",
    "Shift plus tab moves back one field.",
    "Yes.",
    "File, edit, view, help.",
};
// Only for SSML, whose entities the module decodes.
constexpr std::string_view entitySentence = "Tom &amp; Jerry &lt;3 cheese.";
constexpr std::array voices = {"male1", "female1", "child_male", "female3"};
// The first rounds speak runs of three, two and one sentences from each sentence on, to their
// end at the slowest rate. The voice's model runtime keeps the largest memory pool it has needed,
// and how large that gets depends on the sizes and the order of the inputs it has met (one run of
// two sentences after one of three adds 40 MB), so the largest inputs come by in many orders
// before memory is first read.
constexpr int longestRun = 3;
constexpr int warmUpRounds = longestRun * (static_cast<int>(sentences.size()) + 1);

struct Message {
    std::string body;
    std::vector<std::string> marks;
};

enum class Interruption { none, stop, pause };

class Soak {
public:
    Soak(ModuleClient& module, const SoakPlan& plan)
        : module_(module), plan_(plan), random_(plan.seed) {
        report_.plan = plan;
    }

    SoakReport run() {
        if (initialise()) {
            while (report_.rounds < plan_.rounds && round()) {
                ++report_.rounds;
                if (report_.rounds == plan_.settledRound) {
                    report_.residentSettledKilobytes = module_.residentKilobytes();
                    report_.descriptorsSettled = module_.openDescriptors();
                }
            }
        }
        report_.residentEndKilobytes = module_.residentKilobytes();
        report_.descriptorsEnd = module_.openDescriptors();
        quit();
        report_.counts = checker_.counts();
        report_.faultCount += checker_.faultCount();
        report_.faults.insert(report_.faults.begin(), checker_.faults().begin(),
                              checker_.faults().end());
        return report_;
    }

private:
    int randomBetween(int lowest, int highest) {
        return std::uniform_int_distribution<int>(lowest, highest)(random_);
    }
    bool oneIn(int times) { return randomBetween(1, times) == 1; }
    template <typename Choices>
    auto pick(const Choices& choices) {
        return choices[static_cast<size_t>(randomBetween(0, static_cast<int>(choices.size()) - 1))];
    }

    // The next reply or event, shown to the checker; nothing when the module has gone quiet.
    std::optional<Reply> read() {
        std::optional<Reply> reply = module_.next();
        if (!reply) {
            abandon();
            return std::nullopt;
        }
        checker_.observe(*reply);
        return reply;
    }

    // Notes that the module can no longer be talked to; always false.
    bool abandon() {
        if (report_.abandoned.empty()) {
            report_.abandoned =
                "the module went quiet, went away or wrote what is no reply in round " +
                std::to_string(report_.rounds + 1);
        }
        return false;
    }

    // Reads up to the next reply that is not an event; false when none comes.
    bool expect(std::string_view command, std::string_view due) {
        std::optional<Reply> reply;
        while ((reply = read()) && reply->code >= 700) {
        }
        if (!reply) {
            return false;
        }
        const std::string answer = std::to_string(reply->code) + " " + reply->last;
        if (answer != due) {
            ++report_.faultCount;
            report_.faults.push_back("round " + std::to_string(report_.rounds + 1) + ": " +
                                     std::string(command) + " answered \"" + answer + "\", not \"" +
                                     std::string(due) + "\"");
        }
        return true;
    }

    bool send(std::string_view command, std::string_view text, std::string_view due) {
        return (module_.send(text) || abandon()) && expect(command, due);
    }

    bool initialise() {
        return send("INIT", "INIT\n", "299 OK LOADED SUCCESSFULLY") &&
               send("AUDIO", "AUDIO\naudio_output_method=server\n.\n",
                    "207 OK RECEIVING AUDIO SETTINGS") &&
               expect("AUDIO", "203 OK AUDIO INITIALIZED") &&
               set("pitch=0\nrate=0\nvolume=100\npunctuation_mode=none\nspelling_mode=off\n"
                   "voice=male1\nlanguage=en\nsynthesis_voice=NULL\n");
    }

    bool set(const std::string& settings) {
        return send("SET", "SET\n" + settings + ".\n", "203 OK RECEIVING SETTINGS") &&
               expect("SET", "203 OK SETTINGS RECEIVED");
    }

    // Rate, volume and voice, each now and then, as a user changes them between messages.
    bool changeSettings() {
        std::string settings;
        if (oneIn(4)) {
            settings += "rate=" + std::to_string(randomBetween(-100, 100)) + "\n";
        }
        if (oneIn(4)) {
            settings += "volume=" + std::to_string(randomBetween(-100, 100)) + "\n";
        }
        if (oneIn(6)) {
            settings += std::string("voice=") + pick(voices) + "\n";
        }
        if (oneIn(12)) {
            settings += oneIn(2) ? "synthesis_voice=Murmela\n" : "synthesis_voice=NULL\n";
        }
        return settings.empty() || set(settings);
    }

    // One to three sentences: mostly SSML with index marks between them, as speech-dispatcher
    // sends them, sometimes plain text.
    Message message() {
        Message message;
        const int count = randomBetween(1, 3);
        if (oneIn(5)) {
            for (int sentence = 0; sentence < count; ++sentence) {
                if (sentence > 0) {
                    message.body += oneIn(2) ? " " : "\n";
                }
                message.body += pick(sentences);
            }
            return message;
        }
        auto addMark = [&] {
            message.marks.push_back("__spd_" + std::to_string(report_.rounds + 1) + "_" +
                                    std::to_string(message.marks.size()));
            message.body += "<mark name=\"" + message.marks.back() + "\"/>";
        };
        message.body = "<speak>";
        for (int sentence = 0; sentence < count; ++sentence) {
            if (oneIn(2)) {
                addMark();
            }
            message.body += oneIn(8) ? std::string(entitySentence) : pick(sentences);
            if (oneIn(6)) {
                message.body +=
                    "<break time=\"" + std::to_string(randomBetween(10, 300)) + "ms\"/>";
            }
            message.body += oneIn(3) ? "\n" : " ";
        }
        if (oneIn(2)) {
            addMark();
        }
        message.body += "</speak>";
        return message;
    }

    // Warm-up round `number` (from 0): a run of sentences, the entity one counted last.
    static Message warmUpMessage(int number) {
        const int choices = static_cast<int>(sentences.size()) + 1;
        const int length = longestRun - number / choices;
        Message message{"<speak>", {}};
        for (int at = number % choices; at < number % choices + length; ++at) {
            message.body += (at % choices == choices - 1 ? std::string(entitySentence)
                                                         : std::string(sentences[at % choices])) +
                            " ";
        }
        message.body += "</speak>";
        return message;
    }

    bool round() {
        const int number = report_.rounds + 1;
        const bool warmingUp = number <= warmUpRounds;
        std::string settings = number == 1 ? "rate=-100\n" : "";
        if (number == warmUpRounds + 1) {
            settings = "rate=0\n";
        }
        if ((!settings.empty() && !set(settings)) || (!warmingUp && !changeSettings())) {
            return false;
        }
        Message spoken = warmingUp ? warmUpMessage(report_.rounds) : message();
        checker_.messageSent(std::move(spoken.marks));
        if (!send("SPEAK", "SPEAK\n", "202 OK RECEIVING MESSAGE") ||
            !send("SPEAK", spoken.body + "\n.\n", "200 OK SPEAKING")) {
            return false;
        }
        // Most messages are cut short, after a random number of events (none at all included),
        // now and then a little later still, to land in the middle of synthesis.
        const int draw = randomBetween(1, 20);
        const Interruption interruption = warmingUp || draw <= 7 ? Interruption::none
                                          : draw <= 15           ? Interruption::stop
                                                                 : Interruption::pause;
        const int interruptAfter = randomBetween(0, 8);
        const int delayMilliseconds = oneIn(4) ? randomBetween(1, 40) : 0;
        int events = 0;
        bool interrupted = interruption == Interruption::none;
        while (checker_.speaking()) {
            if (!interrupted && events == interruptAfter) {
                std::this_thread::sleep_for(std::chrono::milliseconds(delayMilliseconds));
                if (!module_.send(interruption == Interruption::stop ? "STOP\n" : "PAUSE\n")) {
                    return abandon();
                }
                interruption == Interruption::stop ? checker_.stopSent() : checker_.pauseSent();
                interrupted = true;
            }
            if (!read()) {
                return false;
            }
            ++events;
        }
        // The server sends the next message as soon as one has closed, so mostly this does too;
        // now and then, and before memory is read, it asks for the voices first, which shows
        // anything of the message still on its way before the reply. The checker sees it either
        // way: a stray event before the next message's BEGIN is one out of place.
        if (oneIn(3) || number == plan_.settledRound || number == plan_.rounds) {
            return send("LIST VOICES", "LIST VOICES\n", "200 OK VOICE LIST SENT");
        }
        return true;
    }

    void quit() {
        if (report_.abandoned.empty() && send("QUIT", "QUIT\n", "210 OK QUIT")) {
            // Whatever the module still writes before it ends is checked too.
            while (module_.next(std::chrono::seconds(10))) {
            }
        }
        checker_.finish();
        const int status = module_.finish();
        if (report_.abandoned.empty() && status != 0) {
            ++report_.faultCount;
            report_.faults.push_back("the module ended with status " + std::to_string(status));
        }
    }

    ModuleClient& module_;
    const SoakPlan& plan_;
    std::mt19937_64 random_;
    EventChecker checker_;
    SoakReport report_;
};

}  // namespace

std::optional<int64_t> SoakReport::residentGrowthKilobytes() const {
    if (!residentSettledKilobytes || !residentEndKilobytes) {
        return std::nullopt;
    }
    return *residentEndKilobytes - *residentSettledKilobytes;
}

std::vector<std::string> SoakReport::problems() const {
    std::vector<std::string> found = faults;
    if (faultCount > static_cast<int64_t>(faults.size())) {
        found.push_back("and " + std::to_string(faultCount - static_cast<int64_t>(faults.size())) +
                        " more faults");
    }
    if (!abandoned.empty()) {
        found.push_back(abandoned);
    }
    const std::optional<int64_t> growth = residentGrowthKilobytes();
    if (!growth) {
        found.push_back("the module's resident memory could not be read");
    } else if (*growth >= allowedGrowthKilobytes) {
        found.push_back("resident memory grew by " + std::to_string(*growth) + " KiB from " +
                        std::to_string(*residentSettledKilobytes) + " KiB");
    }
    if (!descriptorsSettled || !descriptorsEnd) {
        found.push_back("the module's open descriptors could not be counted");
    } else if (*descriptorsEnd != *descriptorsSettled) {
        found.push_back("open descriptors went from " + std::to_string(*descriptorsSettled) +
                        " to " + std::to_string(*descriptorsEnd));
    }
    return found;
}

uint64_t soakSeed() {
    const char* given = std::getenv("MURMELA_SOAK_SEED");
    if (given == nullptr || *given == '\0') {
        return std::random_device()();
    }
    const std::string_view text = given;
    uint64_t seed = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seed);
    if (error != std::errc() || end != text.data() + text.size()) {
        throw std::invalid_argument("MURMELA_SOAK_SEED is not a number: " + std::string(text));
    }
    return seed;
}

std::string SoakReport::summary() const {
    auto figure = [](const auto& value, std::string_view unit) {
        return value ? std::to_string(*value) + std::string(unit) : std::string("unknown");
    };
    const std::string settled = " at round " + std::to_string(plan.settledRound) + ", ";
    return std::to_string(rounds) + " rounds (seed " + std::to_string(plan.seed) +
           "): " + std::to_string(counts.messages) + " messages, " + std::to_string(counts.ends) +
           " ended, " + std::to_string(counts.stops) + " stopped, " +
           std::to_string(counts.pauses) + " paused; " + std::to_string(counts.events) +
           " events, " + std::to_string(counts.audio) + " of them audio and " +
           std::to_string(counts.marks) + " index marks; resident " +
           figure(residentSettledKilobytes, " KiB") + settled +
           figure(residentEndKilobytes, " KiB") + " at the end; open descriptors " +
           figure(descriptorsSettled, "") + settled + figure(descriptorsEnd, "") + " at the end; " +
           std::to_string(faultCount) + " faults";
}

SoakReport runSoak(ModuleClient& module, const SoakPlan& plan) {
    return Soak(module, plan).run();
}

}  // namespace murmela::speechd
