// Fuzzing the companion's requests: the bytes as the lines an assistant's client sends, answered
// by the companion's server and tools with a speech that makes no sound. Whatever comes in, every
// answer is a JSON-RPC response (a result or one of the protocol's errors), a tool's result is
// text marked as an error or not, no line gets more than one answer, and once the input ends and
// every speech has been made, the server says it is done.

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "audio/player.h"
#include "companion/mcp_server.h"
#include "companion/speech_tools.h"
#include "support/fuzzing.h"

namespace murmela::fuzzing {
namespace {

using nlohmann::json;

// Makes no sound. What becomes of a speech or a save follows from its text's length, so that
// inputs reach every outcome: a speech is reported when the next line has been received (or
// at the end), so a later speak or stop can overtake it.
class SilentSpeech : public companion::Speech {
public:
    void reportTo(Outcomes outcomes) override { outcomes_ = std::move(outcomes); }

    std::vector<Voice> voices() override {
        return {{"murmela", "Murmela", "en-US", "murmela"},
                {"kokoro/af_heart", "Heart", "en-US", "kokoro"}};
    }

    void speak(std::string text, double, const std::string&) override {
        if (text.size() % 7 == 6) {
            throw AudioOutputError("no sound device");
        }
        pending_ = text.size();
    }

    bool stop() override {
        const bool speaking = pending_.has_value();
        pending_.reset();
        return speaking;
    }

    void save(std::string text, double, const std::string&, std::filesystem::path,
              std::function<void(Narrator::SaveResult)> done, std::function<void()>) override {
        Narrator::SaveResult result{static_cast<int64_t>(text.size() % 3) * 24000, std::nullopt};
        if (text.size() % 5 == 4) {
            result.error = "the disk is full";
        }
        done(result);
    }

    // Reports the speech under way, if any.
    void report() {
        if (!pending_) {
            return;
        }
        const size_t length = *pending_;
        pending_.reset();
        switch (length % 4) {
            case 0:
                outcomes_.synthesised(0);
                break;
            case 1:
                outcomes_.synthesised(static_cast<int64_t>(length) * 1000);
                break;
            case 2:
                outcomes_.voiceFailed("the model failed");
                break;
            default:
                outcomes_.soundFailed("the device went away");
                break;
        }
    }

private:
    Outcomes outcomes_;
    std::optional<size_t> pending_;  // the length of the text being spoken
};

// Whether `message` is an answer (rather than the server's own request); stops at anything
// malformed.
bool checkAnswer(const json& message) {
    // The companion writes what it sends this way; no message may fail to serialise.
    const std::string line = message.dump(-1, ' ', false, json::error_handler_t::replace);
    if (line.find('\n') != std::string::npos) {
        broken("an answer is one line");
    }
    // The one request the server makes of a client: the folders it may save in.
    if (message.is_object() && message.contains("method")) {
        if (message.value("method", json()) != "roots/list" || !message.contains("id")) {
            broken("the server asks the client only for its roots");
        }
        return false;
    }
    if (!message.is_object() || message.value("jsonrpc", json()) != "2.0" ||
        !message.contains("id") || message.contains("result") == message.contains("error")) {
        broken("an answer is a JSON-RPC response with a result or an error");
    }
    const json& id = message["id"];
    if (!id.is_null() && !id.is_string() && !id.is_number_integer()) {
        broken("an answer's id is a request's id or null");
    }
    if (message.contains("error")) {
        const json& error = message["error"];
        const json code = error.value("code", json());
        const bool known = code == companion::parseError || code == companion::invalidRequest ||
                           code == companion::methodNotFound || code == companion::invalidParams;
        if (!known || !error.value("message", json()).is_string()) {
            broken("an error has one of JSON-RPC's codes and a message");
        }
        return true;
    }
    const json& result = message["result"];
    if (!result.is_object()) {
        broken("a result is an object");
    }
    if (result.contains("content")) {
        const json& content = result["content"];
        if (!content.is_array() || content.size() != 1 ||
            content[0].value("type", json()) != "text" ||
            !content[0].value("text", json()).is_string() ||
            !result.value("isError", json()).is_boolean()) {
            broken("a tool's result is one text, marked as an error or not");
        }
    }
    return true;
}

}  // namespace

void companionSession(const uint8_t* data, size_t size) {
    SilentSpeech speech;
    companion::SpeechTools tools(speech);
    size_t answers = 0;
    // Saves are only checked against the folder, never written: the speech is silent.
    companion::McpServer server(
        tools,
        [&answers](const json& message) {
            if (checkAnswer(message)) {
                ++answers;
            }
        },
        std::filesystem::temp_directory_path());
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    size_t lines = 0;
    for (size_t start = 0; start < input.size();) {
        size_t end = input.find('\n', start);
        if (end == std::string_view::npos) {
            end = input.size();
        }
        server.receive(input.substr(start, end - start));
        ++lines;
        speech.report();
        start = end + 1;
        if (answers > lines) {
            broken("no line is answered twice");
        }
    }
    bool done = false;
    server.finish([&done] { done = true; });
    if (!done) {
        broken("once every speech has been made, the server is done");
    }
}

}  // namespace murmela::fuzzing

MURMELA_FUZZ_ENTRY(EveryRequestGetsAtMostOneWellFormedAnswer, murmela::fuzzing::companionSession,
                   2000)
