#include "speechd/voices.h"

#include <algorithm>
#include <optional>
#include <string_view>

namespace murmela::speechd {
namespace {

std::string lowered(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), [](unsigned char c) {
        return c == '_' ? '-' : static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    });
    return result;
}

std::string_view primaryLanguage(std::string_view tag) {
    return tag.substr(0, tag.find('-'));
}

std::string withoutTabs(std::string text) {
    std::replace(text.begin(), text.end(), '\t', ' ');
    return text;
}

std::optional<size_t> firstWhere(const std::vector<OfferedVoice>& voices, const auto& matches) {
    const auto found = std::find_if(voices.begin(), voices.end(), matches);
    if (found == voices.end()) {
        return std::nullopt;
    }
    return static_cast<size_t>(found - voices.begin());
}

}  // namespace

std::vector<std::string> voiceListLines(const std::vector<OfferedVoice>& voices) {
    std::vector<std::string> lines;
    for (const OfferedVoice& voice : voices) {
        lines.push_back(withoutTabs(voice.name) + "\t" + withoutTabs(voice.language) + "\t" +
                        withoutTabs(voice.variant));
    }
    return lines;
}

size_t chosenVoice(const std::vector<OfferedVoice>& voices, const Settings& settings,
                   size_t current) {
    if (!settings.synthesisVoice.empty()) {
        const std::string wanted = lowered(settings.synthesisVoice);
        if (auto named = firstWhere(
                voices, [&](const OfferedVoice& voice) { return lowered(voice.name) == wanted; })) {
            return *named;
        }
    }
    if (settings.language.empty() || current >= voices.size()) {
        return current;
    }
    // Tags are compared as speech-dispatcher and the voices' files may spell them: "en_GB" is
    // "en-gb".
    const std::string language = lowered(settings.language);
    const auto speaks = [&](const OfferedVoice& voice) {
        return lowered(voice.language) == language;
    };
    const auto speaksPrimary = [&](const OfferedVoice& voice) {
        return primaryLanguage(lowered(voice.language)) == primaryLanguage(language);
    };
    const bool exact = language.find('-') != std::string::npos;
    if (exact ? speaks(voices[current]) : speaksPrimary(voices[current])) {
        return current;
    }
    return firstWhere(voices, speaks).value_or(firstWhere(voices, speaksPrimary).value_or(current));
}

}  // namespace murmela::speechd
