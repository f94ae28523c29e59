#include "speech_harness.h"

#include <stdlib.h>

#include <QSettings>

#include "support/test_voice.h"

namespace murmela::testing {

LogRecord::LogRecord()
    : capture_([this](log::Level level, const std::string& text) {
          std::lock_guard lock(mutex_);
          lines_.push_back({level, text});
      }) {}

std::vector<LogRecord::Line> LogRecord::lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
}

std::vector<LogRecord::Line> LogRecord::startingWith(const std::string& prefix) const {
    std::vector<Line> found;
    for (const Line& line : lines()) {
        if (line.text.starts_with(prefix)) {
            found.push_back(line);
        }
    }
    return found;
}

SignalRecord::SignalRecord(const Speech& speech) {
    QObject::connect(&speech, &Speech::phaseChanged, &receiver_,
                     [this](Phase phase) { phases.push_back(phase); });
    QObject::connect(&speech, &Speech::noticeChanged, &receiver_,
                     [this](const std::optional<Notice>& notice) { notices.push_back(notice); });
    QObject::connect(&speech, &Speech::cancelChanged, &receiver_, [this] { ++cancelChanges; });
    QObject::connect(&speech, &Speech::voiceChanged, &receiver_, [this] { ++voiceChanges; });
}

PrivateSettings::PrivateSettings() {
    ensureApplication();
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope,
                       QString::fromStdString(directory_.path().string()));
    ::setenv("MURMELA_DEFAULTS_SUITE", "murmela-tests", 1);
}

PrivateSettings::~PrivateSettings() {
    ::unsetenv("MURMELA_DEFAULTS_SUITE");
}

SettingsStore PrivateSettings::store() const {
    return SettingsStore::forModel({});
}

std::string PrivateSettings::fileText() const {
    return readText(directory_ / "murmela" / "murmela-tests.ini");
}

std::unique_ptr<Speech> makeSpeech(const PrivateSettings& settings) {
    return std::make_unique<Speech>(settings.store(), testVoiceDirectory());
}

bool loadAndWait(Speech& speech) {
    speech.load();
    return runEventsUntil([&] { return speech.phase() != Phase::loading; },
                          std::chrono::seconds(60)) &&
           speech.phase() == Phase::ready;
}

bool waitForReady(Speech& speech, std::chrono::milliseconds timeout) {
    return runEventsUntil([&] { return speech.phase() == Phase::ready; }, timeout);
}

}  // namespace murmela::testing
