#pragma once
// What can go wrong with a voice, worded for the user.

#include <stdexcept>
#include <string>

namespace murmela {

class VoiceError : public std::runtime_error {
public:
    // A file or model that is absent or can't be read: "voice: <name> missing".
    static VoiceError missing(const std::string& name) {
        return VoiceError("voice: " + name + " missing");
    }
    // A file or section that fails validation: "voice: <name> unreadable".
    static VoiceError damaged(const std::string& name) {
        return VoiceError("voice: " + name + " unreadable");
    }
    // Anything else, as free text: "voice: <text>".
    static VoiceError failed(const std::string& text) { return VoiceError("voice: " + text); }

private:
    explicit VoiceError(const std::string& description) : std::runtime_error(description) {}
};

}  // namespace murmela
