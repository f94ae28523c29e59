#include "speechd/settings.h"

#include <charconv>
#include <cmath>
#include <optional>
#include <string>

#include "common/speech_rules.h"

namespace murmela::speechd {
namespace {

std::optional<int> percentage(std::string_view value) {
    if (!value.empty() && value.front() == '+') {
        value.remove_prefix(1);
    }
    int number = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (value.empty() || error != std::errc() || end != value.data() + value.size() ||
        number < -100 || number > 100) {
        return std::nullopt;
    }
    return number;
}

std::optional<PunctuationMode> punctuationMode(std::string_view value) {
    if (value == "none") {
        return PunctuationMode::none;
    }
    if (value == "some") {
        return PunctuationMode::some;
    }
    if (value == "most") {
        return PunctuationMode::most;
    }
    if (value == "all") {
        return PunctuationMode::all;
    }
    return std::nullopt;
}

bool isIgnored(std::string_view name) {
    for (std::string_view ignored : {"pitch", "pitch_range", "cap_let_recogn", "voice",
                                     "punctuation_some", "punctuation_most", "voice_type"}) {
        if (name == ignored) {
            return true;
        }
    }
    return false;
}

}  // namespace

SettingOutcome applySetting(Settings& settings, std::string_view line) {
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos || equals == 0) {
        return SettingOutcome::badSyntax;
    }
    const std::string_view name = line.substr(0, equals);
    const std::string_view value = line.substr(equals + 1);
    if (isIgnored(name)) {
        return SettingOutcome::applied;
    }
    // The server writes NULL for a parameter it leaves to the module: keep the current value.
    const bool unset = value == "NULL";
    if (name == "rate" || name == "volume") {
        std::optional<int> number = percentage(value);
        if (!unset && !number) {
            return SettingOutcome::invalid;
        }
        if (number) {
            (name == "rate" ? settings.rate : settings.volume) = *number;
        }
        return SettingOutcome::applied;
    }
    if (name == "punctuation_mode") {
        std::optional<PunctuationMode> mode = punctuationMode(value);
        if (!unset && !mode) {
            return SettingOutcome::invalid;
        }
        settings.punctuation = mode.value_or(settings.punctuation);
        return SettingOutcome::applied;
    }
    if (name == "synthesis_voice" || name == "language") {
        // NULL: the server leaves the choice to the module again.
        (name == "language" ? settings.language : settings.synthesisVoice) =
            unset ? std::string() : std::string(value);
        return SettingOutcome::applied;
    }
    if (name == "spelling_mode") {
        if (value != "on" && value != "off" && !unset) {
            return SettingOutcome::invalid;
        }
        settings.spelling = unset ? settings.spelling : value == "on";
        return SettingOutcome::applied;
    }
    return SettingOutcome::invalid;
}

double speedForRate(int rate) {
    const double step = rate / 100.0;
    return rate >= 0 ? std::pow(fastestScreenReaderSpeed, step)
                     : std::pow(slowestScreenReaderSpeed, -step);
}

float gainForVolume(int volume) {
    return static_cast<float>(volume + 100) / 200.0f;
}

}  // namespace murmela::speechd
