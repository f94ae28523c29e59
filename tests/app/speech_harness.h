#pragma once
// What the application model's tests share besides the player's harness (a Qt event loop): a
// private settings store, the test voice, and records of the model's signals and log lines.

#include <QObject>

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "app/phase.h"
#include "app/settings.h"
#include "app/speech.h"
#include "audio/player_harness.h"
#include "logging/log.h"
#include "support/temporary_directory.h"

namespace murmela::testing {

// Every log line while it lives, from any thread.
class LogRecord {
public:
    LogRecord();

    struct Line {
        log::Level level;
        std::string text;
    };
    std::vector<Line> lines() const;
    // The lines that start with `prefix`.
    std::vector<Line> startingWith(const std::string& prefix) const;

private:
    mutable std::mutex mutex_;
    std::vector<Line> lines_;
    log::Capture capture_;
};

// Every phase and notice change a model signals, in order, while the record lives.
class SignalRecord {
public:
    explicit SignalRecord(const Speech& speech);

    std::vector<Phase> phases;
    std::vector<std::optional<Notice>> notices;
    int cancelChanges = 0;
    int voiceChanges = 0;

private:
    QObject receiver_;  // ends the connections with the record
};

// Settings files under a temporary directory, the model's suite named "murmela-tests".
class PrivateSettings {
public:
    PrivateSettings();
    ~PrivateSettings();

    SettingsStore store() const;
    // The model's settings file, as written.
    std::string fileText() const;

private:
    TemporaryDirectory directory_{"murmela-settings"};
};

// A model on the test voice with private settings.
std::unique_ptr<Speech> makeSpeech(const PrivateSettings& settings);

// Loads the model's voice and waits for `ready`; false when it did not come.
bool loadAndWait(Speech& speech);

// Runs events until the model is `ready` again (or `timeout` passes).
bool waitForReady(Speech& speech, std::chrono::milliseconds timeout);

}  // namespace murmela::testing
