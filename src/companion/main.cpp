// The assistant companion: `murmela mcp` serves the Model Context Protocol on standard input
// and output until the client closes its end.

#include <unistd.h>

#include <QCoreApplication>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "app/narrator.h"
#include "app/render_queue.h"
#include "app/render_work.h"
#include "build_info.h"
#include "companion/mcp_server.h"
#include "companion/narrator_speech.h"
#include "files/files.h"

namespace {

using namespace murmela;

// A line longer than this is refused unread rather than held in memory.
constexpr size_t longestMessage = size_t{16} << 20;

// Reads standard input on a thread of its own and hands each line to the main thread; at the
// end of input the main thread's event loop quits once every request has been answered (a
// speech then stops).
void readLines(int fd, MainThreadInbox& inbox, companion::McpServer& server) {
    LineReader reader(fd, longestMessage);
    while (std::optional<LineReader::Line> line = reader.next()) {
        // An overlong line is handed over as nothing but its start, which cannot parse.
        std::string message = line->overlong ? "{\"message too long\"" : std::move(line->text);
        inbox.post([&server, message = std::move(message)] { server.receive(message); });
    }
    inbox.post([&server] { server.finish([] { QCoreApplication::quit(); }); });
}

}  // namespace

int main(int argc, char** argv) {
    const char* program = argc > 0 ? argv[0] : "murmela";
    const std::string_view command = argc == 2 ? argv[1] : "";
    if (command == "--version") {
        std::printf("murmela companion %s\n", buildinfo::version);
        return 0;
    }
    if (command == "--help" || command == "-h") {
        std::printf(
            "Usage: %s mcp\n"
            "\n"
            "Murmela's assistant companion: serves the Model Context Protocol on standard input\n"
            "and output, for an AI assistant to speak through Murmela's voice.\n"
            "\n"
            "  mcp           serve the protocol until standard input ends\n"
            "  -h, --help    show this help\n"
            "      --version show the version\n",
            program);
        return 0;
    }
    if (command != "mcp") {
        std::fprintf(stderr, "%s: expected the one argument 'mcp'; try '%s --help'\n", program,
                     program);
        return 2;
    }
    // Standard output belongs to the protocol alone: anything a library prints there would
    // corrupt it, so descriptor 1 becomes standard error and the protocol keeps a copy.
    const int protocolOut = ::dup(STDOUT_FILENO);
    if (protocolOut < 0 || ::dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        std::perror("murmela mcp: standard output");
        return 1;
    }
    std::signal(SIGPIPE, SIG_IGN);  // a client that has gone is a write error, seen below

    QCoreApplication application(argc, argv);
    auto narrator = std::make_unique<Narrator>([] { return openWarmVoice(std::nullopt); });
    companion::NarratorSpeech speech(*narrator, VoiceLocations::standard());
    companion::SpeechTools tools(speech);
    const char* home = std::getenv("HOME");
    companion::McpServer server(
        tools,
        [protocolOut](const nlohmann::json& message) {
            std::string line =
                message.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
            const auto* bytes = reinterpret_cast<const uint8_t*>(line.data());
            if (writeAll(protocolOut, {bytes, line.size()}) != 0) {
                QCoreApplication::quit();
            }
        },
        home != nullptr ? std::filesystem::path(home) : std::filesystem::path());
    MainThreadInbox inbox;
    std::thread reader(readLines, STDIN_FILENO, std::ref(inbox), std::ref(server));
    const int code = QCoreApplication::exec();
    // Nothing reaches the server once the loop has ended. The narrator goes first, abandoning a
    // save under way (which removes its scratch file); the reader may still wait for input that
    // will not be used, so the process ends without waiting for it.
    narrator.reset();
    std::fflush(stderr);
    std::_Exit(code);
}
