#include "voices/installed_voice.h"

#include <algorithm>
#include <system_error>

#include "voices/voices_failure.h"

namespace murmela {
namespace {

VoiceChoice choiceOf(const InstalledVoice& voice) {
    return VoiceChoice(voice.directory, voice.details.style);
}

}  // namespace

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
    return openWarmVoice(choiceOf(voice));
}

VoiceChoice chooseVoice(std::string_view text, const VoiceStore& store) {
    VoiceChoice given = parseVoiceChoice(text);
    std::error_code ignored;
    if (std::filesystem::is_directory(given.directory, ignored)) {
        return given;
    }
    const VoiceListing listing = store.list();
    if (const std::optional<InstalledVoice> voice = findVoice(listing, text)) {
        return choiceOf(*voice);
    }
    throw VoicesFailure(VoicesFailure::Kind::notFound, "no voice directory or installed voice " +
                                                           std::string(text) +
                                                           "; installed: " + voiceIds(listing));
}

}  // namespace murmela
