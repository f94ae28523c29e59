// sd_murmela: Murmela's voices as a speech-dispatcher output module. speech-dispatcher starts it
// with the module's configuration file as its argument and talks to it over standard input and
// output; standard error goes to the server's log.

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "logging/log.h"
#include "speechd/module.h"
#include "voices/installed_voice.h"
#include "voices/voice_store.h"

namespace {

using murmela::InstalledVoice;
using murmela::speechd::OfferedVoice;

// The name speech-dispatcher has always known the bundled voice by.
constexpr const char* bundledName = "Murmela";

// What speech-dispatcher lists: a voice's own name, or its id where two share a name.
OfferedVoice offered(const InstalledVoice& voice, const std::vector<InstalledVoice>& voices) {
    const bool unique = std::count_if(voices.begin(), voices.end(), [&](const auto& other) {
                            return other.details.name == voice.details.name;
                        }) == 1;
    return {unique && !voice.details.name.empty() ? voice.details.name : voice.id,
            voice.details.language.empty() ? "en-US" : voice.details.language,
            voice.details.gender.empty() ? "none" : voice.details.gender};
}

}  // namespace

int main() {
    // A server that goes away must not kill the module in the middle of a write.
    signal(SIGPIPE, SIG_IGN);
    const murmela::VoiceListing listing =
        murmela::VoiceStore(murmela::VoiceLocations::standard()).list();
    for (const std::string& problem : listing.problems) {
        murmela::log::error("sd_murmela", problem);
    }
    // The default voice comes first and opens on INIT: MURMELA_VOICE's choice, else the bundled
    // voice, offered even when it is missing so that INIT fails saying so.
    std::vector<std::optional<InstalledVoice>> voices(1);
    std::vector<OfferedVoice> offers{{bundledName, "en-US", "none"}};
    for (const InstalledVoice& voice : listing.voices) {
        if (voice.place != murmela::VoicePlace::bundled) {
            voices.emplace_back(voice);
            offers.push_back(offered(voice, listing.voices));
        }
    }
    murmela::speechd::Module module(STDIN_FILENO, STDOUT_FILENO, offers, [&](size_t index) {
        const std::optional<InstalledVoice>& voice = voices.at(index);
        return voice ? murmela::openInstalledVoice(*voice) : murmela::openWarmVoice(std::nullopt);
    });
    module.run();
    return 0;
}
