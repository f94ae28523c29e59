#pragma once
// What can go wrong with a voice, worded for the user.

#include <stdexcept>
#include <string>

namespace murmela {

class VoiceError : public std::runtime_error {
public:
    enum class Kind { missing, damaged, failed };

    // A file or model that is absent or can't be read: "voice: <name> missing".
    static VoiceError missing(const std::string& name) {
        return VoiceError(Kind::missing, name, "voice: " + name + " missing");
    }
    // A file or section that fails validation: "voice: <name> unreadable".
    static VoiceError damaged(const std::string& name) {
        return VoiceError(Kind::damaged, name, "voice: " + name + " unreadable");
    }
    // Anything else, as free text: "voice: <text>".
    static VoiceError failed(const std::string& text) {
        return VoiceError(Kind::failed, text, "voice: " + text);
    }

    Kind kind() const { return kind_; }
    const std::string& payload() const { return payload_; }

private:
    VoiceError(Kind kind, std::string payload, const std::string& description)
        : std::runtime_error(description), kind_(kind), payload_(std::move(payload)) {}

    Kind kind_;
    std::string payload_;
};

}  // namespace murmela
