#include "companion/speech_tools.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <set>
#include <stdexcept>

#include "app/speech_output.h"
#include "common/speech_rules.h"
#include "common/voice_format.h"
#include "frontend/normalise.h"

namespace murmela::companion {
namespace {

using nlohmann::json;

// Arguments that do not fit the tool's schema; what() says what is wrong.
class BadArguments : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

json speedSchema() {
    return {{"type", "number"},
            {"minimum", minimumSpeed},
            {"maximum", maximumSpeed},
            {"description", std::string("Speaking speed from ") + speedRangeText +
                                "; 1 is normal, larger is faster."}};
}

json textSchema(const char* description) {
    return {{"type", "string"}, {"minLength", 1}, {"description", description}};
}

json objectSchema(json properties, json required) {
    return {{"type", "object"},
            {"properties", std::move(properties)},
            {"required", std::move(required)},
            {"additionalProperties", false}};
}

// Refuses arguments the tool does not know, so that a misspelt "sped" is not silently ignored.
void onlyKnown(const json& arguments, const std::set<std::string>& known) {
    for (const auto& [name, value] : arguments.items()) {
        if (known.count(name) == 0) {
            throw BadArguments("unknown argument \"" + name + "\"");
        }
    }
}

std::string requiredText(const json& arguments, const std::string& name) {
    const auto found = arguments.find(name);
    if (found == arguments.end()) {
        throw BadArguments("the argument \"" + name + "\" is missing");
    }
    if (!found->is_string()) {
        throw BadArguments("\"" + name + "\" must be a string");
    }
    return found->get<std::string>();
}

std::string speakableText(const json& arguments) {
    std::string text = requiredText(arguments, "text");
    if (!hasSomethingToSpeak(text)) {
        throw BadArguments("\"text\" has nothing to speak");
    }
    return text;
}

double optionalSpeed(const json& arguments) {
    const auto found = arguments.find("speed");
    if (found == arguments.end()) {
        return 1.0;
    }
    if (!found->is_number()) {
        throw BadArguments(std::string("\"speed\" must be a number from ") + speedRangeText);
    }
    const double speed = found->get<double>();
    if (!(speed >= minimumSpeed && speed <= maximumSpeed)) {
        throw BadArguments(std::string("\"speed\" must be from ") + speedRangeText + ", not " +
                           found->dump());
    }
    return speed;
}

std::filesystem::path absolutePath(const json& arguments) {
    const std::filesystem::path path = requiredText(arguments, "path");
    if (!path.is_absolute()) {
        throw BadArguments("\"path\" must be an absolute path, such as /home/me/speech.wav");
    }
    return path;
}

json voiceSchema() {
    return {{"type", "string"},
            {"description",
             "The id of an installed voice, as list_voices gives it; the default "
             "voice when left out."}};
}

double secondsOf(int64_t samples) {
    return static_cast<double>(samples) / sampleRate;
}

std::string seconds(int64_t samples) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", secondsOf(samples));
    return text;
}

}  // namespace

json toolResult(const std::string& text, bool isError) {
    return {{"content", json::array({{{"type", "text"}, {"text", text}}})}, {"isError", isError}};
}

SpeechTools::SpeechTools(Speech& speech) : speech_(speech) {
    speech_.reportTo({
        .synthesised =
            [this](int64_t samples) {
                if (samples == 0) {
                    answerSpeak(toolResult("The text has nothing to speak.", true));
                    return;
                }
                json result = toolResult("Speaking " + seconds(samples) + " seconds of audio.");
                result["structuredContent"] = {{"seconds", secondsOf(samples)}};
                answerSpeak(std::move(result));
            },
        .voiceFailed =
            [this](const std::string& description) {
                answerSpeak(toolResult("The voice failed: " + description, true));
            },
        .soundFailed =
            [this](const std::string& description) {
                answerSpeak(toolResult("The sound output failed: " + description, true));
            },
    });
}

json SpeechTools::definitions() {
    return json::array({
        {{"name", "speak"},
         {"title", "Speak text aloud"},
         {"description",
          "Speaks English text aloud with Murmela's offline voice on the computer's default "
          "sound output. Returns once the speech is playing, with its length in seconds; a new "
          "speak replaces the speech under way."},
         {"inputSchema", objectSchema({{"text", textSchema("The text to speak.")},
                                       {"speed", speedSchema()},
                                       {"voice", voiceSchema()}},
                                      {"text"})}},
        {{"name", "stop"},
         {"title", "Stop speaking"},
         {"description", "Stops the speech under way at once."},
         {"inputSchema", objectSchema(json::object(), json::array())}},
        {{"name", "save_audio"},
         {"title", "Save speech to a WAV file"},
         {"description",
          "Speaks English text into a WAV file (16-bit PCM, mono, 24000 Hz) instead of playing "
          "it. The file appears complete or not at all. " +
              std::string(SaveLocation::description())},
         {"inputSchema",
          objectSchema({{"text", textSchema("The text to speak.")},
                        {"path", textSchema("Absolute path of the WAV file to write.")},
                        {"speed", speedSchema()},
                        {"voice", voiceSchema()}},
                       {"text", "path"})}},
        {{"name", "list_voices"},
         {"title", "List the installed voices"},
         {"description",
          "Lists the voices installed for Murmela: each one's id (for the voice argument of "
          "speak and save_audio), name, language and kind. The first is the default voice."},
         {"inputSchema", objectSchema(json::object(), json::array())}},
    });
}

void SpeechTools::allowSavingIn(SaveLocation location) {
    location_ = std::move(location);
}

bool SpeechTools::exists(const std::string& name) {
    return name == "speak" || name == "stop" || name == "save_audio" || name == "list_voices";
}

void SpeechTools::call(const std::string& name, const json& arguments,
                       std::function<void(json)> reply) {
    try {
        if (name == "speak") {
            speak(arguments, reply);
        } else if (name == "stop") {
            onlyKnown(arguments, {});
            stop(reply);
        } else if (name == "list_voices") {
            onlyKnown(arguments, {});
            listVoices(reply);
        } else {
            save(arguments, reply);
        }
    } catch (const BadArguments& error) {
        reply(toolResult(std::string("Invalid arguments for ") + name + ": " + error.what(), true));
    }
}

void SpeechTools::speak(const json& arguments, std::function<void(json)> reply) {
    onlyKnown(arguments, {"text", "speed", "voice"});
    std::string text = speakableText(arguments);
    const double speed = optionalSpeed(arguments);
    const std::string voice = chosenVoice(arguments);
    answerSpeak(toolResult("Stopped by a newer speech before it was all made."));
    try {
        speech_.speak(std::move(text), speed, voice);
    } catch (const AudioOutputError& error) {
        reply(toolResult(std::string("The sound output cannot be opened: ") + error.what(), true));
        return;
    }
    speakReply_ = std::move(reply);
}

void SpeechTools::stop(std::function<void(json)> reply) {
    answerSpeak(toolResult("Stopped before it was all made."));
    reply(toolResult(speech_.stop() ? "Stopped speaking." : "Nothing was being spoken."));
}

void SpeechTools::save(const json& arguments, std::function<void(json)> reply) {
    onlyKnown(arguments, {"text", "path", "speed", "voice"});
    std::string text = speakableText(arguments);
    const std::filesystem::path requested = absolutePath(arguments);
    const double speed = optionalSpeed(arguments);
    const std::string voice = chosenVoice(arguments);
    std::filesystem::path destination;
    try {
        destination = location_.destination(requested);
    } catch (const SaveRefused& refused) {
        reply(toolResult(std::string("Nothing was saved: ") + refused.what(), true));
        return;
    }
    // Checked again when the file is opened and before it is put in place, so that a link or
    // a file made meanwhile is not written through or over.
    auto checkDestination = [location = location_, requested, destination] {
        if (location.destination(requested) != destination) {
            throw SaveRefused(requested.string() + " changed while it was being written");
        }
    };
    speech_.save(
        std::move(text), speed, voice, destination,
        [requested, reply = std::move(reply)](const Narrator::SaveResult& result) {
            if (result.error) {
                reply(toolResult("Nothing was saved: " + *result.error, true));
            } else if (result.samples == 0) {
                reply(toolResult("The text has nothing to speak; nothing was saved.", true));
            } else {
                json answer = toolResult("Saved " + seconds(result.samples) +
                                         " seconds of audio to " + requested.string() + ".");
                answer["structuredContent"] = {{"path", requested.string()},
                                               {"seconds", secondsOf(result.samples)}};
                reply(std::move(answer));
            }
        },
        std::move(checkDestination));
}

std::string SpeechTools::chosenVoice(const json& arguments) {
    const std::vector<Speech::Voice> voices = speech_.voices();
    const auto found = arguments.find("voice");
    if (found == arguments.end()) {
        return voices.empty() ? std::string() : voices.front().id;
    }
    std::string ids;
    for (const Speech::Voice& voice : voices) {
        if (found->is_string() && found->get<std::string>() == voice.id) {
            return voice.id;
        }
        ids += (ids.empty() ? "" : ", ") + voice.id;
    }
    throw BadArguments("\"voice\" must be the id of an installed voice: " +
                       (ids.empty() ? std::string("none is installed") : ids));
}

void SpeechTools::listVoices(std::function<void(json)> reply) {
    std::string text;
    json listed = json::array();
    for (const Speech::Voice& voice : speech_.voices()) {
        text += (text.empty() ? "" : "\n") + voice.id + ": " + voice.name + " (" + voice.language +
                ", " + voice.kind + ")";
        listed.push_back({{"id", voice.id},
                          {"name", voice.name},
                          {"language", voice.language},
                          {"kind", voice.kind}});
    }
    json result = toolResult(text.empty() ? "No voice is installed." : text);
    result["structuredContent"] = {{"voices", std::move(listed)}};
    reply(std::move(result));
}

void SpeechTools::answerSpeak(json result) {
    if (speakReply_) {
        auto reply = std::move(speakReply_);
        speakReply_ = nullptr;
        reply(std::move(result));
    }
}

}  // namespace murmela::companion
