#pragma once
// One installed voice picked by its id, as every front door picks it, and opened.

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "engine/voice.h"
#include "engine/voice_choice.h"
#include "voices/voice_store.h"

namespace murmela {

// The voice of `listing` that `id` names; nothing when none does.
std::optional<InstalledVoice> findVoice(const VoiceListing& listing, std::string_view id);

// The ids of `listing`, comma-separated, for an error that says which ones there are.
std::string voiceIds(const VoiceListing& listing);

// Opens `voice` and warms it up (openWarmVoice); its errors are passed on unchanged.
std::shared_ptr<Voice> openInstalledVoice(const InstalledVoice& voice);

// The voice `text` names on a command line: an existing directory, read as parseVoiceChoice
// reads it (DIR or DIR:NAME), else the id of a voice `store` lists. Throws
// VoicesFailure::notFound, naming the installed ids, when it is neither.
VoiceChoice chooseVoice(std::string_view text, const VoiceStore& store);

}  // namespace murmela
