// sd_murmela: Murmela's voice as a speech-dispatcher output module. speech-dispatcher starts it
// with the module's configuration file as its argument and talks to it over standard input and
// output; standard error goes to the server's log.

#include <signal.h>
#include <unistd.h>

#include <optional>

#include "engine/voice.h"
#include "speechd/module.h"

int main() {
    // A server that goes away must not kill the module in the middle of a write.
    signal(SIGPIPE, SIG_IGN);
    murmela::speechd::Module module(
        STDIN_FILENO, STDOUT_FILENO, {{"Murmela", "en-US", "none"}},
        [](const murmela::speechd::OfferedVoice&) { return murmela::openWarmVoice(std::nullopt); });
    module.run();
    return 0;
}
