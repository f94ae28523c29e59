#pragma once
// The companion's tools: speak, stop, save_audio and list_voices, with their input schemas.
// Arguments are checked against the schemas here, and whatever is wrong with them comes back as a
// tool result marked as an error, in words an assistant can act on.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "app/narrator.h"
#include "companion/save_location.h"

namespace murmela::companion {

// What the tools speak and save through: the companion's narrator (NarratorSpeech), or one that
// makes no sound where only the requests are under test. Called, and reporting, on one thread.
class Speech {
public:
    // An installed voice, as list_voices shows it.
    struct Voice {
        std::string id;  // what the voice argument names
        std::string name;
        std::string language;
        std::string kind;
    };

    // How each speech that speak() starts ends, unless stop() comes first: all of it made
    // (`synthesised`, with its samples; 0 when there was nothing to speak), or a failure of the
    // voice or of the sound output, with its description.
    struct Outcomes {
        std::function<void(int64_t samples)> synthesised;
        std::function<void(const std::string& description)> voiceFailed;
        std::function<void(const std::string& description)> soundFailed;
    };

    virtual ~Speech() = default;
    // Where the outcomes of later speeches go.
    virtual void reportTo(Outcomes outcomes) = 0;
    // The voices installed now; the first is the one used when a call names none.
    virtual std::vector<Voice> voices() = 0;
    // As the narrator's members of the same names, with the voice of that id (one of voices()).
    virtual void speak(std::string text, double speed, const std::string& voice) = 0;
    virtual bool stop() = 0;
    virtual void save(std::string text, double speed, const std::string& voice,
                      std::filesystem::path destination,
                      std::function<void(Narrator::SaveResult)> done,
                      std::function<void()> checkDestination) = 0;
};

class SpeechTools {
public:
    // Speaks and saves through `speech`, which must outlive the tools. Saves nowhere until
    // told where it may (allowSavingIn).
    explicit SpeechTools(Speech& speech);
    SpeechTools(const SpeechTools&) = delete;
    SpeechTools& operator=(const SpeechTools&) = delete;

    // The definitions that tools/list gives.
    static nlohmann::json definitions();

    // Whether a tool of that name exists.
    static bool exists(const std::string& name);

    // Where save_audio may write from now on.
    void allowSavingIn(SaveLocation location);

    // Runs the tool `name` (which exists) with `arguments` (an object) and calls `reply`, now
    // or later, with the tool's result.
    void call(const std::string& name, const nlohmann::json& arguments,
              std::function<void(nlohmann::json)> reply);

private:
    void speak(const nlohmann::json& arguments, std::function<void(nlohmann::json)> reply);
    void stop(std::function<void(nlohmann::json)> reply);
    void save(const nlohmann::json& arguments, std::function<void(nlohmann::json)> reply);
    void listVoices(std::function<void(nlohmann::json)> reply);
    // The id of the voice the arguments name, or of the first installed when they name none.
    std::string chosenVoice(const nlohmann::json& arguments);
    // Answers the speak call still waiting for its speech to be made, if any.
    void answerSpeak(nlohmann::json result);

    Speech& speech_;
    SaveLocation location_ =
        SaveLocation::nowhere("the companion has not been told where to write");
    std::function<void(nlohmann::json)> speakReply_;  // the speak call waiting for its answer
};

// A tool result holding one text; `isError` marks a failure of the tool.
nlohmann::json toolResult(const std::string& text, bool isError = false);

}  // namespace murmela::companion
