#include "voices/installed_voice.h"

#include <algorithm>

namespace murmela {

std::optional<InstalledVoice> findVoice(const VoiceListing& listing, std::string_view id) {
    const auto found = std::find_if(listing.voices.begin(), listing.voices.end(),
                                    [&](const InstalledVoice& voice) { return voice.id == id; });
    if (found == listing.voices.end()) {
        return std::nullopt;
    }
    return *found;
}

std::string voiceIds(const VoiceListing& listing) {
    std::string ids;
    for (const InstalledVoice& voice : listing.voices) {
        ids += (ids.empty() ? "" : ", ") + voice.id;
    }
    return ids;
}

std::shared_ptr<Voice> openInstalledVoice(const InstalledVoice& voice) {
    return openWarmVoice(VoiceChoice(voice.directory, voice.details.style));
}

}  // namespace murmela
