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

// The resources as the program finds them (MURMELA_RESOURCES, or beside the executable as in
// the build tree), else where an installation put them, found from the module's own place
// (the server's module directory), so a package under any prefix finds its voice.
fs::path voiceDirectory() {
    std::error_code ignored;
    if (std::optional<fs::path> resources = murmela::resourceDirectory()) {
        if (std::getenv("MURMELA_RESOURCES") != nullptr ||
            fs::is_directory(*resources / "Voice", ignored)) {
            return *resources / "Voice";
        }
    }
    const fs::path module = murmela::executableDirectory().value_or(fs::path());
    return (module / MURMELA_RESOURCES_FROM_MODULE / "Voice").lexically_normal();
}

std::unique_ptr<murmela::Voice> openVoice() {
    const fs::path directory = voiceDirectory();
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
