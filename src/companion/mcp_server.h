#pragma once
// The companion's side of the Model Context Protocol: JSON-RPC 2.0 messages, one per line, read
// from the client and answered through `send`. It negotiates the protocol revision, lists the
// tools and runs them; a message it cannot use gets the JSON-RPC error that says why, and
// nothing a client sends ends it. A client that has roots is asked for them once it is
// initialised and whenever it says they changed; a save waits for the answer.

#include <QTimer>

#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

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
    // Answers go to `send`, one message at a time; tool calls run through `tools`. Saves go
    // inside `homeFolder` (outside its hidden folders) unless the client has roots.
    McpServer(SpeechTools& tools, std::function<void(const nlohmann::json&)> send,
              std::filesystem::path homeFolder);

    // Handles one line from the client. Blank lines are ignored.
    void receive(std::string_view line);

    // The client has closed its end: `done` is called once every request received has been
    // answered (at once when none is waiting).
    void finish(std::function<void()> done);

    // The revision to answer an initialize asking for `requested`: the same when the server
    // speaks it, else the newest it speaks.
    static std::string negotiatedRevision(const nlohmann::json& requested);

    // How long a save waits for the client's roots before it is refused.
    static constexpr int rootsPatienceMilliseconds = 5000;

private:
    void request(const nlohmann::json& id, const std::string& method, const nlohmann::json& params);
    void notified(const std::string& method);
    void responded(const nlohmann::json& id, const nlohmann::json& message);
    void askForRoots();
    // The saves that waited for the roots run (or are refused) now.
    void releaseSaves();
    void callTool(const nlohmann::json& id, const nlohmann::json& params);
    void answer(const nlohmann::json& id, nlohmann::json result);
    void refuse(const nlohmann::json& id, RpcError code, const std::string& message);

    SpeechTools& tools_;
    std::function<void(const nlohmann::json&)> send_;
    int unanswered_ = 0;  // tool calls still running
    std::function<void()> finished_;
    std::filesystem::path homeFolder_;
    bool clientHasRoots_ = false;
    bool rootsKnown_ = true;  // false while the client has not answered the latest roots/list
    int rootsRequests_ = 0;
    nlohmann::json rootsRequestId_;  // the latest roots/list sent
    std::vector<std::function<void()>> waitingSaves_;
    QTimer rootsPatience_;
};

}  // namespace murmela::companion
