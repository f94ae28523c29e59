// Fuzzing the speech-dispatcher module: the bytes as what the server writes to it, answered by
// the module with the test voice speaking. Whatever comes in, every line the module writes is a
// numbered reply or event, and each message it accepts has its events in order: BEGIN, then its
// index marks and audio, then one closing event, before the next message is accepted.

#include <unistd.h>

#include <cctype>
#include <memory>
#include <string>
#include <string_view>

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

void checkAnswers(std::string_view output) {
    namespace reply = speechd::reply;
    auto is = [](std::string_view line, std::string_view expected) {
        return line == expected.substr(0, expected.size() - 1);  // without its LF
    };
    enum class Message { none, accepted, begun } message = Message::none;
    size_t start = 0;
    while (start < output.size()) {
        const size_t end = output.find('\n', start);
        if (end == std::string_view::npos) {
            broken("the module writes whole lines");
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
}

}  // namespace

void moduleSession(const uint8_t* data, size_t size) {
    // Opened once: sessions follow one another, and each module stops its speech as it ends.
    static const std::shared_ptr<Voice> voice = openWarmVoice(MURMELA_TEST_VOICE_DIR);
    const int input = memoryFile({reinterpret_cast<const char*>(data), size});
    const int output = memoryFile({});
    {
        speechd::Module module(input, output, [] { return voice; });
        module.run();
    }
    checkAnswers(contents(output));
    ::close(input);
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

MURMELA_FUZZ_TARGET(ModuleAnswersInWholeOrderedEvents, murmela::fuzzing::moduleSession, 300)
