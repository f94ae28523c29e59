#pragma once
// The companion's tools: speak, stop and save_audio, with their input schemas. Arguments are
// checked against the schemas here, and whatever is wrong with them comes back as a tool result
// marked as an error, in words an assistant can act on.

#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "cli/narrator.h"
#include "companion/save_location.h"

namespace murmela::companion {

class SpeechTools {
public:
    // Speaks and saves through `narrator`, which must outlive the tools. Saves nowhere until
    // told where it may (allowSavingIn).
    explicit SpeechTools(Narrator& narrator);
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
    // Answers the speak call still waiting for its speech to be made, if any.
    void answerSpeak(nlohmann::json result);

    Narrator& narrator_;
    SaveLocation location_ =
        SaveLocation::nowhere("the companion has not been told where to write");
    std::function<void(nlohmann::json)> speakReply_;  // the speak call waiting for its answer
};

// A tool result holding one text; `isError` marks a failure of the tool.
nlohmann::json toolResult(const std::string& text, bool isError = false);

}  // namespace murmela::companion
