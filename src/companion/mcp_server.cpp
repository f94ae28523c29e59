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

McpServer::McpServer(SpeechTools& tools, std::function<void(const json&)> send)
    : tools_(tools), send_(std::move(send)) {}

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
    } catch (const json::parse_error& error) {
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
        // A response; the server asks the client nothing, so there is nothing to match it to.
        if (!message.contains("result") && !message.contains("error")) {
            refuse(id, invalidRequest, "Invalid Request: no method");
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
        // notifications/initialized, notifications/cancelled and the like need no answer, and
        // one the server does not know is ignored.
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
    tools_.call(name->get<std::string>(), arguments, [this, id](json result) {
        answer(id, std::move(result));
        if (--unanswered_ == 0 && finished_) {
            finished_();
        }
    });
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
