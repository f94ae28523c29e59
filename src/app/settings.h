#pragma once
// Where the application's settings come from.
//
// - The argument domain: "-murmela.key value" pairs given on the command line, read once by
//   main() and handed down. It is searched before any file, and never written.
// - The standard store: the application's own settings file (~/.config/murmela/murmela.ini),
//   under the argument domain. The parity mode reads its settings here.
// - The model's store: the suite that MURMELA_DEFAULTS_SUITE names
//   (~/.config/murmela/<suite>.ini), when it names one that can be opened, else the standard
//   store. The application model keeps its one persisted setting, the speed, here.
//
// A store is used on one thread at a time.

#include <QSettings>
#include <QString>
#include <QVariant>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "common/speech_rules.h"

namespace murmela {

class ArgumentDomain {
public:
    ArgumentDomain() = default;

    // Every "-key value" pair of the arguments after the program's name; anything else (a
    // lone word, a final key without a value) is ignored. A later pair wins.
    static ArgumentDomain fromCommandLine(int argc, const char* const* argv);

    std::optional<std::string> value(std::string_view key) const;

private:
    std::map<std::string, std::string, std::less<>> values_;
};

class SettingsStore {
public:
    // The application's own settings under the argument domain.
    static SettingsStore standard(ArgumentDomain arguments);

    // The suite named by MURMELA_DEFAULTS_SUITE when that is a usable name, else the standard
    // store.
    static SettingsStore forModel(ArgumentDomain arguments);

    // The value of `key`: from the argument domain when it has one, else from the file.
    std::optional<QVariant> value(std::string_view key) const;

    // Writes `key` to the file (the argument domain is never written).
    void setValue(std::string_view key, const QVariant& value);

    // The file behind the store.
    QString fileName() const { return settings_->fileName(); }

private:
    SettingsStore(ArgumentDomain arguments, const QString& name);

    ArgumentDomain arguments_;
    std::unique_ptr<QSettings> settings_;
};

// Whether `name` can name a settings suite: not empty, not the standard store's own name,
// and usable as a file name.
bool isUsableSuiteName(const QString& name);

// The window's speed moves in steps of 0.05 through the listener's range.
constexpr double speedStep = 0.05;

// `value` brought into the range and onto a step, with no floating-point residue (0.8 is 0.8,
// not 0.8000000000000002). Not a number and the infinities become 1.0.
double normalisedSpeed(double value);

// The speed a stored setting stands for: 1.0 when there is none or it is not a number, else
// the number normalised.
double speedFromSetting(const std::optional<QVariant>& stored);

}  // namespace murmela
