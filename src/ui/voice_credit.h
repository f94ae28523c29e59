#pragma once
// What a voice says about itself in its voice.json (name, description, licence), for the
// About window.

#include <QString>
#include <filesystem>

namespace murmela::ui {

struct VoiceCredit {
    // Each member is empty when the voice does not say.
    QString name;
    QString description;
    QString license;
    QString licenseLink;

    // The members "name", "description", "license" and "licenseLink" of the voice.json in
    // `voiceDirectory`; a member that is missing, not text or blank stays empty, and so does
    // every member when the file cannot be read.
    static VoiceCredit read(const std::filesystem::path& voiceDirectory);

    // The credit of the voice in the resource directory.
    static VoiceCredit installed();
};

}  // namespace murmela::ui
