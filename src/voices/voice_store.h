#pragma once
// Where voices live, and the one list of installed voices every front door shows: the bundled
// voice among the resources, the voices a user added ($XDG_DATA_HOME/murmela/voices) and those
// installed for all users (voices/ among the resources: /usr/share/murmela/voices). One voice
// directory each; a Kokoro pack or a multi-speaker Piper model gives one voice per style or
// speaker.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "voices/voice_catalog.h"

namespace murmela {

enum class VoicePlace { bundled, user, system };

// "bundled", "user", "system".
std::string_view placeName(VoicePlace place);

struct VoiceLocations {
    std::optional<std::filesystem::path> bundled;  // the resources' Voice/ directory
    std::optional<std::filesystem::path> user;     // nothing when there is no home to put it in
    std::optional<std::filesystem::path> system;   // the resources' voices/ folder

    // From the environment: the resources as every program finds them (resourceDirectory()),
    // and $XDG_DATA_HOME (when absolute) or $HOME/.local/share.
    static VoiceLocations standard();
};

struct InstalledVoice {
    // Stable and readable: "murmela" for the bundled voice, otherwise the directory's name,
    // followed by "/STYLE" for each style of a Kokoro pack or speaker of a Piper model.
    std::string id;
    VoiceDetails details;
    VoicePlace place = VoicePlace::user;
    uintmax_t sizeBytes = 0;  // the whole directory's
    std::filesystem::path directory;
};

struct VoiceListing {
    std::vector<InstalledVoice> voices;  // bundled, then the user's, then the system's
    std::vector<std::string> problems;   // one line per directory that is no readable voice
};

class VoiceStore {
public:
    static constexpr const char* bundledId = "murmela";

    explicit VoiceStore(VoiceLocations locations) : locations_(std::move(locations)) {}

    // Every installed voice. A directory that can't be read is left out and named among the
    // problems; a user's voice hides a system one with the same id.
    VoiceListing list() const;

    // A new, empty directory inside the user's voices folder (so on the same file system) for
    // putting a voice together before it counts. Staging folders untouched for an hour, left by
    // a program that was killed, are removed first. Throws VoicesFailure::cannotWrite.
    std::filesystem::path createStaging() const;
    // Where partial downloads wait to be resumed; created when missing.
    std::filesystem::path partialDownloads() const;
    // Removes the partial downloads' folder when nothing waits there any more.
    void tidyPartialDownloads() const;

    // Renames the voice directory `staged` into the user's voices folder as `name`, in one
    // step that never replaces anything. Returns the ids it gives. Throws VoicesFailure: refused
    // when the name is taken or not a plain folder name, cannotWrite when the rename fails.
    std::vector<std::string> install(const std::filesystem::path& staged,
                                     const std::string& name) const;

    // Removes the user's voice `id` (or a whole pack by its directory's name): the directory
    // is first renamed out of the folder, so no half-removed voice is ever listed. Throws
    // VoicesFailure: notFound for an unknown id, refused for bundled and system voices and for
    // one style of a pack.
    void remove(const std::string& id) const;

    const VoiceLocations& locations() const { return locations_; }

private:
    const std::filesystem::path& userFolder() const;

    VoiceLocations locations_;
};

// The bytes of the regular files under `directory`, symbolic links not followed.
uintmax_t directorySize(const std::filesystem::path& directory);

}  // namespace murmela
