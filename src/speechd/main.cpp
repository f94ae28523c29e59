// sd_murmela: Murmela's voice as a speech-dispatcher output module. speech-dispatcher starts it
// with the module's configuration file as its argument and talks to it over standard input and
// output; standard error goes to the server's log.

#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>

#include "common/voice_error.h"
#include "engine/voice.h"
#include "files/files.h"
#include "speechd/module.h"

namespace {

namespace fs = std::filesystem;

std::unique_ptr<murmela::Voice> openVoice() {
    const fs::path directory = murmela::resourceDirectory().value_or(fs::path()) / "Voice";
    std::error_code ignored;
    if (!fs::is_directory(directory, ignored)) {
        throw murmela::VoiceError::missing(directory.string());
    }
    auto voice = std::make_unique<murmela::Voice>(directory);
    // The first synthesis pays for the runtime's first run; pay it now, not on the first key.
    voice->speak("Hi.", 1.0, [](murmela::SpokenChunk&&) { return true; });
    return voice;
}

}  // namespace

int main() {
    // A server that goes away must not kill the module in the middle of a write.
    signal(SIGPIPE, SIG_IGN);
    murmela::speechd::Module module(STDIN_FILENO, STDOUT_FILENO, openVoice);
    module.run();
    return 0;
}
