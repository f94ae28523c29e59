#include "voices/voice_store.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <set>
#include <system_error>

#include "common/error_description.h"
#include "engine/voice_files.h"
#include "files/files.h"
#include "voices/voices_failure.h"

namespace murmela {
namespace {

namespace fs = std::filesystem;

std::optional<fs::path> environmentPath(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr || *value == '\0' || fs::path(value).is_relative()) {
        return std::nullopt;
    }
    return fs::path(value);
}

// Bundled, user and system voices in one list: ids on the left, what the files say on the
// right.
void addDirectory(VoiceListing& listing, std::set<std::string>& taken, const fs::path& directory,
                  const std::string& baseId, VoicePlace place) {
    std::vector<VoiceDetails> voices;
    try {
        voices = readVoiceDirectory(directory);
    } catch (...) {
        listing.problems.push_back(directory.string() + ": " +
                                   errorDescription(std::current_exception()));
        return;
    }
    const uintmax_t size = directorySize(directory);
    for (VoiceDetails& details : voices) {
        std::string id = details.style.empty() ? baseId : baseId + "/" + details.style;
        if (!taken.insert(id).second) {
            continue;
        }
        listing.voices.push_back({std::move(id), std::move(details), place, size, directory});
    }
}

void addFolder(VoiceListing& listing, std::set<std::string>& taken, const fs::path& folder,
               VoicePlace place) {
    std::error_code error;
    std::set<fs::path> directories;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, error)) {
        std::error_code typeError;
        // Dot-folders hold voices being put together or taken apart, and partial downloads.
        if (entry.is_directory(typeError) && entry.path().filename().string()[0] != '.') {
            directories.insert(entry.path());
        }
    }
    for (const fs::path& directory : directories) {
        addDirectory(listing, taken, directory, directory.filename().string(), place);
    }
}

VoicesFailure cannotWrite(const std::string& what, const std::error_code& error) {
    const std::string reason =
        error == std::errc::no_space_on_device ? "the disk is full" : error.message();
    return VoicesFailure(VoicesFailure::Kind::cannotWrite, what + ": " + reason);
}

// A staging folder lives for one install or removal, seconds to minutes; one untouched for an
// hour was left by a program that was killed, and may hold a whole voice's worth of disk.
void removeAbandonedStaging(const fs::path& folder) {
    constexpr auto abandonedAfter = std::chrono::hours(1);
    std::error_code error;
    const auto now = fs::file_time_type::clock::now();
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, error)) {
        if (!entry.path().filename().string().starts_with(".staging-") ||
            !entry.is_directory(error)) {
            continue;
        }
        const fs::file_time_type changed = entry.last_write_time(error);
        if (!error && now - changed > abandonedAfter) {
            fs::remove_all(entry.path(), error);
        }
        error.clear();
    }
}

}  // namespace

std::string_view placeName(VoicePlace place) {
    switch (place) {
        case VoicePlace::bundled:
            return "bundled";
        case VoicePlace::user:
            return "user";
        case VoicePlace::system:
            return "system";
    }
    return "unknown";
}

VoiceLocations VoiceLocations::standard() {
    VoiceLocations locations;
    if (const std::optional<VoiceFiles> bundled = VoiceFiles::locate()) {
        locations.bundled = bundled->directory();
    }
    if (const std::optional<fs::path> data = environmentPath("XDG_DATA_HOME")) {
        locations.user = *data / "murmela" / "voices";
    } else if (const std::optional<fs::path> home = environmentPath("HOME")) {
        locations.user = *home / ".local" / "share" / "murmela" / "voices";
    }
    // Beside the bundled voice: /usr/share/murmela/voices when installed, and in a build tree
    // the build's own, where the second bundled voice is staged.
    if (const std::optional<fs::path> resources = resourceDirectory()) {
        locations.system = *resources / "voices";
    }
    return locations;
}

uintmax_t directorySize(const fs::path& directory) {
    uintmax_t total = 0;
    std::error_code error;
    for (fs::recursive_directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code sizeError;
        if (entry->is_regular_file(sizeError) && !entry->is_symlink(sizeError)) {
            const uintmax_t size = entry->file_size(sizeError);
            total += sizeError ? 0 : size;
        }
    }
    return total;
}

VoiceListing VoiceStore::list() const {
    VoiceListing listing;
    std::set<std::string> taken;
    std::error_code error;
    if (locations_.bundled && fs::is_directory(*locations_.bundled, error)) {
        addDirectory(listing, taken, *locations_.bundled, bundledId, VoicePlace::bundled);
    }
    if (locations_.user) {
        addFolder(listing, taken, *locations_.user, VoicePlace::user);
    }
    if (locations_.system) {
        addFolder(listing, taken, *locations_.system, VoicePlace::system);
    }
    return listing;
}

const fs::path& VoiceStore::userFolder() const {
    if (!locations_.user) {
        throw VoicesFailure(VoicesFailure::Kind::cannotWrite,
                            "no folder for your voices: neither XDG_DATA_HOME nor HOME is set");
    }
    std::error_code error;
    fs::create_directories(*locations_.user, error);
    if (error) {
        throw cannotWrite("cannot create " + locations_.user->string(), error);
    }
    return *locations_.user;
}

fs::path VoiceStore::createStaging() const {
    const fs::path& folder = userFolder();
    removeAbandonedStaging(folder);
    std::string pattern = (folder / ".staging-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw cannotWrite("cannot create a folder in " + folder.string(),
                          std::error_code(errno, std::generic_category()));
    }
    return pattern;
}

fs::path VoiceStore::partialDownloads() const {
    const fs::path folder = userFolder() / ".partial";
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        throw cannotWrite("cannot create " + folder.string(), error);
    }
    return folder;
}

void VoiceStore::tidyPartialDownloads() const {
    if (locations_.user) {
        std::error_code error;
        fs::remove(*locations_.user / ".partial", error);  // fails, as meant, unless empty
    }
}

std::vector<std::string> VoiceStore::install(const fs::path& staged,
                                             const std::string& name) const {
    if (name.empty() || name[0] == '.' || name.find('/') != std::string::npos ||
        name == bundledId) {
        throw VoicesFailure(VoicesFailure::Kind::refused,
                            "\"" + name + "\" can't name a voice: it must be a plain folder name" +
                                (name == bundledId ? ", and not the bundled voice's" : ""));
    }
    const fs::path destination = userFolder() / name;
    if (::renameat2(AT_FDCWD, staged.c_str(), AT_FDCWD, destination.c_str(), RENAME_NOREPLACE) !=
        0) {
        const int error = errno;
        if (error == EEXIST || error == ENOTEMPTY) {
            throw VoicesFailure(
                VoicesFailure::Kind::refused,
                name + " is installed already (murmela voices remove " + name + " removes it)");
        }
        throw cannotWrite("cannot move the voice into " + destination.string(),
                          std::error_code(error, std::generic_category()));
    }
    std::vector<std::string> ids;
    for (const VoiceDetails& details : readVoiceDirectory(destination)) {
        ids.push_back(details.style.empty() ? name : name + "/" + details.style);
    }
    return ids;
}

void VoiceStore::remove(const std::string& id) const {
    const VoiceListing listing = list();
    const InstalledVoice* found = nullptr;
    for (const InstalledVoice& voice : listing.voices) {
        if (voice.id == id || voice.directory.filename() == id) {
            found = &voice;
            break;
        }
    }
    if (found == nullptr) {
        throw VoicesFailure(VoicesFailure::Kind::notFound,
                            "no voice " + id + " (murmela voices lists them)");
    }
    if (found->place == VoicePlace::bundled) {
        throw VoicesFailure(VoicesFailure::Kind::refused,
                            id + " is bundled with Murmela and can't be removed");
    }
    if (found->place == VoicePlace::system) {
        throw VoicesFailure(VoicesFailure::Kind::refused,
                            id + " is installed for all users in " +
                                found->directory.parent_path().string() +
                                "; the system's package manager removes it");
    }
    const std::string pack = found->directory.filename().string();
    if (id != pack) {
        throw VoicesFailure(VoicesFailure::Kind::refused,
                            id + " is one voice of " + pack +
                                ", which is removed whole (murmela voices remove " + pack + ")");
    }
    const fs::path removing = createStaging();
    const fs::path moved = removing / pack;
    std::error_code error;
    fs::rename(found->directory, moved, error);
    if (error) {
        fs::remove(removing, error);
        throw cannotWrite("cannot remove " + found->directory.string(), error);
    }
    fs::remove_all(removing, error);
}

}  // namespace murmela
