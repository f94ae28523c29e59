#pragma once
// The companion's side of the Model Context Protocol: JSON-RPC 2.0 messages, one per line, read
// from the client and answered through `send`. It negotiates the protocol revision, lists the
// tools and runs them; a message it cannot use gets the JSON-RPC error that says why, and
// nothing a client sends ends it.

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "companion/speech_tools.h"

namespace murmela::companion {

// The revisions the server speaks, newest first.
inline constexpr const char* protocolRevisions[] = {"2025-11-25", "2025-06-18", "2025-03-26",
                                                    "2024-11-05"};

// JSON-RPC's error codes.
enum RpcError : int {
    parseError = -32700,
    invalidRequest = -32600,
    methodNotFound = -32601,
    invalidParams = -32602,
};

class McpServer {
public:
    // Answers go to `send`, one message at a time; tool calls run through `tools`.
    McpServer(SpeechTools& tools, std::function<void(const nlohmann::json&)> send);

    // Handles one line from the client. Blank lines are ignored.
    void receive(std::string_view line);

    // The client has closed its end: `done` is called once every request received has been
    // answered (at once when none is waiting).
    void finish(std::function<void()> done);

    // The revision to answer an initialize asking for `requested`: the same when the server
    // speaks it, else the newest it speaks.
    static std::string negotiatedRevision(const nlohmann::json& requested);

private:
    void request(const nlohmann::json& id, const std::string& method, const nlohmann::json& params);
    void callTool(const nlohmann::json& id, const nlohmann::json& params);
    void answer(const nlohmann::json& id, nlohmann::json result);
    void refuse(const nlohmann::json& id, RpcError code, const std::string& message);

    SpeechTools& tools_;
    std::function<void(const nlohmann::json&)> send_;
    int unanswered_ = 0;  // tool calls still running
    std::function<void()> finished_;
};

}  // namespace murmela::companion
