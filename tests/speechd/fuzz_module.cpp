// Fuzzing the speech-dispatcher module: the bytes as what the server writes to it, answered by
// the module with the test voice speaking. Whatever comes in, every line the module writes is a
// numbered reply or event, and each message it accepts has its events in order: BEGIN, then its
// index marks and audio, then one closing event, before the next message is accepted.

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "engine/voice.h"
#include "speechd/module.h"
#include "speechd/protocol.h"
#include "support/fuzzing.h"

namespace murmela::fuzzing {
namespace {

bool isNumbered(std::string_view line) {
    return line.size() >= 4 && std::isdigit(static_cast<unsigned char>(line[0])) &&
           std::isdigit(static_cast<unsigned char>(line[1])) &&
           std::isdigit(static_cast<unsigned char>(line[2])) && (line[3] == ' ' || line[3] == '-');
}

// Checks what the module has written so far (`whole`: all it will write) and says whether a
// message is being spoken.
bool checkAnswers(std::string_view output, bool whole) {
    namespace reply = speechd::reply;
    auto is = [](std::string_view line, std::string_view expected) {
        return line == expected.substr(0, expected.size() - 1);  // without its LF
    };
    enum class Message { none, accepted, begun } message = Message::none;
    size_t start = 0;
    while (start < output.size()) {
        const size_t end = output.find('\n', start);
        if (end == std::string_view::npos) {
            if (whole) {
                broken("the module writes whole lines");
            }
            break;  // still being written
        }
        const std::string_view line = output.substr(start, end - start);
        start = end + 1;
        if (!isNumbered(line)) {
            broken("every line is a numbered reply or event");
        }
        if (is(line, reply::speaking)) {
            if (message != Message::none) {
                broken("a message is accepted only once the one before it has ended");
            }
            message = Message::accepted;
        } else if (is(line, reply::begin)) {
            if (message != Message::accepted) {
                broken("BEGIN comes once for each accepted message");
            }
            message = Message::begun;
        } else if (line == "700 INDEX MARK" || line == "705 AUDIO") {
            if (message != Message::begun) {
                broken("marks and audio come between BEGIN and the closing event");
            }
        } else if (is(line, reply::end) || is(line, reply::stop) || is(line, reply::pause)) {
            if (message != Message::begun) {
                broken("a message closes once, after its BEGIN");
            }
            message = Message::none;
        }
    }
    return message != Message::none;
}

}  // namespace

void moduleSession(const uint8_t* data, size_t size) {
    // Opened once: sessions follow one another, and each module stops its speech as it ends.
    // Never destroyed, like the runtime environment its sessions belong to: at exit the
    // runtime's own statics may be gone before a static voice would be.
    static const std::shared_ptr<Voice>& voice =
        *new std::shared_ptr<Voice>(openWarmVoice(VoiceChoice(MURMELA_TEST_VOICE_DIR)));
    // A module that has quit reads no more, and the write to it fails.
    static const bool writesFailQuietly = ::signal(SIGPIPE, SIG_IGN) != SIG_ERR;
    int pipe[2];
    if (!writesFailQuietly || ::pipe2(pipe, O_CLOEXEC) != 0 ||
        ::fcntl(pipe[1], F_SETFL, O_NONBLOCK) != 0) {
        broken("a pipe to the module can be made");
    }
    const int output = memoryFile({});
    {
        // Two voices to switch between, both the one voice, so a switch costs nothing.
        speechd::Module module(pipe[0], output,
                               {{"Murmela", "en-US", "none"}, {"Other", "en-GB", "female"}},
                               [](size_t) { return voice; });
        std::atomic<bool> ended = false;
        std::thread reader([&module, &ended] {
            module.run();
            ended = true;
        });
        // The input stays open until the module has read it all and the message it speaks has
        // ended, so the worker's events are checked too, as speech-dispatcher sees them; then
        // it closes, as when the server goes. A module that writes nothing for a quarter of a
        // second waits for the rest of a command (holding back the worker's events until then),
        // and is not waited for.
        size_t sent = 0;
        while (sent < size && !ended) {
            const ssize_t written = ::write(pipe[1], data + sent, size - sent);
            if (written > 0) {
                sent += static_cast<size_t>(written);
            } else if (errno == EAGAIN) {
                pollfd writable{pipe[1], POLLOUT, 0};
                ::poll(&writable, 1, 10);
            } else {
                break;
            }
        }
        using Clock = std::chrono::steady_clock;
        const Clock::time_point deadline = Clock::now() + std::chrono::seconds(10);
        Clock::time_point lastChange = Clock::now();
        std::optional<std::string> seen;  // what the module had written at the last look
        while (!ended && Clock::now() < deadline) {
            int unread = 0;
            ::ioctl(pipe[0], FIONREAD, &unread);
            std::string written = contents(output);
            if (written != seen) {
                lastChange = Clock::now();
            } else if (unread == 0 &&
                       (!checkAnswers(written, false) ||
                        Clock::now() - lastChange > std::chrono::milliseconds(250))) {
                break;
            }
            seen = std::move(written);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        ::close(pipe[1]);
        reader.join();
    }
    checkAnswers(contents(output), true);
    ::close(pipe[0]);
    ::close(output);
}

}  // namespace murmela::fuzzing

#ifdef MURMELA_LIBFUZZER
// The voice opens before the fuzzing starts, so its time does not count against the first input.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    murmela::fuzzing::moduleSession(nullptr, 0);
    return 0;
}
#endif

MURMELA_FUZZ_ENTRY(ModuleAnswersInWholeOrderedEvents, murmela::fuzzing::moduleSession, 60)
