#include "companion/mcp_server.h"

#include "build_info.h"
#include "logging/log.h"

namespace murmela::companion {

using nlohmann::json;

namespace {

// JSON-RPC allows strings and numbers as ids; the protocol narrows that to strings and
// integers.
bool isValidId(const json& id) {
    return id.is_string() || id.is_number_integer();
}

}  // namespace

McpServer::McpServer(SpeechTools& tools, std::function<void(const json&)> send,
                     std::filesystem::path homeFolder)
    : tools_(tools), send_(std::move(send)), homeFolder_(std::move(homeFolder)) {
    tools_.allowSavingIn(SaveLocation::insideHome(homeFolder_));
    rootsPatience_.setSingleShot(true);
    rootsPatience_.setInterval(rootsPatienceMilliseconds);
    // A client that never answers must not hold a save for ever. Guessing a place instead could
    // write where the client meant to forbid, so the save is refused; a late answer still counts
    // for the saves after it.
    QObject::connect(&rootsPatience_, &QTimer::timeout, [this] {
        log::info("companion: the client has not answered roots/list");
        tools_.allowSavingIn(
            SaveLocation::nowhere("the client has not said which folders the "
                                  "companion may write to"));
        releaseSaves();
    });
}

std::string McpServer::negotiatedRevision(const json& requested) {
    for (const char* revision : protocolRevisions) {
        if (requested.is_string() && requested.get<std::string>() == revision) {
            return revision;
        }
    }
    return protocolRevisions[0];
}

void McpServer::receive(std::string_view line) {
    if (line.find_first_not_of(" \t\r\n") == std::string_view::npos) {
        return;
    }
    json message;
    try {
        message = json::parse(line);
    } catch (const json::exception& error) {
        // Not only malformed text: a number too large for a double ("1e5555") is the parser's
        // out_of_range error, and it must not end the companion either.
        refuse(nullptr, parseError, std::string("Parse error: ") + error.what());
        return;
    }
    if (!message.is_object()) {
        refuse(nullptr, invalidRequest,
               message.is_array() ? "Invalid Request: batches are not supported"
                                  : "Invalid Request: a message must be a JSON object");
        return;
    }
    const auto idField = message.find("id");
    const bool isNotification = idField == message.end();
    if (!isNotification && !isValidId(*idField)) {
        refuse(nullptr, invalidRequest, "Invalid Request: id must be a string or an integer");
        return;
    }
    const json id = isNotification ? json(nullptr) : *idField;
    const auto method = message.find("method");
    if (method == message.end()) {
        if (!message.contains("result") && !message.contains("error")) {
            refuse(id, invalidRequest, "Invalid Request: no method");
        } else {
            responded(id, message);
        }
        return;
    }
    if (message.value("jsonrpc", json()) != "2.0" || !method->is_string()) {
        if (!isNotification) {
            refuse(id, invalidRequest,
                   "Invalid Request: needs \"jsonrpc\": \"2.0\" and a method name");
        }
        return;
    }
    const json params = message.value("params", json::object());
    if (isNotification) {
        notified(method->get<std::string>());
        return;
    }
    if (!params.is_object()) {
        refuse(id, invalidParams, "Invalid params: params must be an object");
        return;
    }
    request(id, method->get<std::string>(), params);
}

void McpServer::request(const json& id, const std::string& method, const json& params) {
    if (method == "initialize") {
        const auto requested = params.find("protocolVersion");
        if (requested == params.end() || !requested->is_string()) {
            refuse(id, invalidParams, "Invalid params: protocolVersion must be a string");
            return;
        }
        const std::string revision = negotiatedRevision(*requested);
        const json capabilities = params.value("capabilities", json::object());
        clientHasRoots_ = capabilities.is_object() && capabilities.contains("roots");
        if (clientHasRoots_) {
            // Saves wait until the client, once initialised, has told its roots; a client
            // that never says it is initialised does not hold them for ever either.
            rootsKnown_ = false;
            rootsPatience_.start();
        } else {
            tools_.allowSavingIn(SaveLocation::insideHome(homeFolder_));
        }
        log::info("companion: protocol " + revision + " (asked for " +
                  requested->get<std::string>() + ")");
        answer(id, {{"protocolVersion", revision},
                    {"capabilities", {{"tools", {{"listChanged", false}}}}},
                    {"serverInfo",
                     {{"name", "murmela"}, {"title", "Murmela"}, {"version", buildinfo::version}}},
                    {"instructions",
                     "Murmela speaks English text aloud with an offline voice on this computer, "
                     "or saves it as a WAV file."}});
    } else if (method == "ping") {
        answer(id, json::object());
    } else if (method == "tools/list") {
        answer(id, {{"tools", SpeechTools::definitions()}});
    } else if (method == "tools/call") {
        callTool(id, params);
    } else {
        refuse(id, methodNotFound, "Method not found: " + method);
    }
}

void McpServer::notified(const std::string& method) {
    // Others (notifications/cancelled and the like) need nothing, and unknown ones are ignored.
    if (clientHasRoots_ &&
        (method == "notifications/initialized" || method == "notifications/roots/list_changed")) {
        askForRoots();
    }
}

void McpServer::askForRoots() {
    rootsKnown_ = false;
    rootsRequestId_ = "murmela-roots-" + std::to_string(++rootsRequests_);
    send_({{"jsonrpc", "2.0"}, {"id", rootsRequestId_}, {"method", "roots/list"}});
    rootsPatience_.start();
}

void McpServer::responded(const json& id, const json& message) {
    // Only the latest roots/list counts: an older answer may list roots since withdrawn.
    if (rootsRequests_ == 0 || id != rootsRequestId_) {
        return;
    }
    rootsPatience_.stop();
    const auto result = message.find("result");
    if (result != message.end()) {
        std::vector<std::filesystem::path> roots = rootPaths(*result);
        log::info("companion: the client has " + std::to_string(roots.size()) + " file roots");
        tools_.allowSavingIn(SaveLocation::insideRoots(std::move(roots)));
    } else {
        // Whatever the error holds, only a string message is shown.
        const json error = message.value("error", json::object());
        const auto text = error.is_object() ? error.find("message") : error.end();
        const std::string description =
            text != error.end() && text->is_string() ? text->get<std::string>() : "no reason given";
        log::info("companion: roots/list failed: " + description);
        tools_.allowSavingIn(
            SaveLocation::nowhere("the client could not list its roots (" + description + ")"));
    }
    releaseSaves();
}

void McpServer::releaseSaves() {
    rootsKnown_ = true;
    std::vector<std::function<void()>> saves = std::move(waitingSaves_);
    waitingSaves_.clear();
    for (const auto& save : saves) {
        save();
    }
}

void McpServer::callTool(const json& id, const json& params) {
    const auto name = params.find("name");
    if (name == params.end() || !name->is_string()) {
        refuse(id, invalidParams, "Invalid params: name must be the name of a tool");
        return;
    }
    if (!SpeechTools::exists(name->get<std::string>())) {
        refuse(id, invalidParams, "Unknown tool: " + name->get<std::string>());
        return;
    }
    const json arguments = params.value("arguments", json::object());
    if (!arguments.is_object()) {
        refuse(id, invalidParams, "Invalid params: arguments must be an object");
        return;
    }
    ++unanswered_;
    auto run = [this, id, name = name->get<std::string>(), arguments] {
        tools_.call(name, arguments, [this, id](json result) {
            answer(id, std::move(result));
            if (--unanswered_ == 0 && finished_) {
                finished_();
            }
        });
    };
    if (name->get<std::string>() == "save_audio" && !rootsKnown_) {
        waitingSaves_.push_back(std::move(run));
    } else {
        run();
    }
}

void McpServer::finish(std::function<void()> done) {
    if (unanswered_ == 0) {
        done();
    } else {
        finished_ = std::move(done);
    }
}

void McpServer::answer(const json& id, json result) {
    send_({{"jsonrpc", "2.0"}, {"id", id}, {"result", std::move(result)}});
}

void McpServer::refuse(const json& id, RpcError code, const std::string& message) {
    log::info("companion: " + message);
    send_({{"jsonrpc", "2.0"}, {"id", id}, {"error", {{"code", code}, {"message", message}}}});
}

}  // namespace murmela::companion
